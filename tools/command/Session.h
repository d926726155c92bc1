#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "hsutils/errorclass.h"
#include "vintakd/folderidentity.h"
#include "vintakd/vintakd_if.h"

/// Nobody answers behind the segment.
class NoDaemon : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A daemon runs behind the segment, but for another account.
class NotAllowed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One request in words; paths absolute, since the daemon has a working directory of its own.
struct Request {
    std::string inputFile;
    std::string outputPrefix;
    std::string cachePrefix;
    bool verbose = false;
    bool dumponly = false;
    bool escapeNewLines = false;
    bool needOptimize = true;
    bool noCached = false;
    std::vector<unsigned short> tags;  ///< pairs (group, element)
    int tagsOnce = 0;
    std::vector<std::string> files;
    int writeMask = 0;
    int specificFrame = 0;
    vintakd::ConversionPart part{};  ///< where it is part of a conversion; `specificFrame` is 0 then
};

/// What came back: an answer, or the reason why there is none.
struct Outcome {
    bool done = false;
    std::string text;  ///< the answer without its character set, or the cause
    ErrorClass kind = ErrorClass::none;
    std::string characterSet = {};  ///< of the answer
    std::vector<std::string> warnings =
        {};                ///< what a conversion left out or read in a way that may surprise
    bool givenUp = false;  ///< nobody had time for it yet, and the caller did not want to wait on
};

/// The connection to one daemon. Usable from several threads at once.
class Session {
public:
    /// Throws NoDaemon or NotAllowed.
    explicit Session(std::string segment);

    /// Makes one request; waits for a free channel as long as the daemon lives and `givesUp`, which is asked
    /// now and then, is false. Throws NoDaemon.
    Outcome ask(const Request& request, const std::function<bool()>& givesUp = nullptr);

    Gateway& gateway() { return *m_gateway; }
    size_t channels() const { return m_gateway->channelCount(); }

private:
    Outcome call(const Request& request);

    std::string m_segment;
    std::unique_ptr<Gateway> m_gateway;
};

using vintakd::absolutePath;
