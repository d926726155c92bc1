#pragma once

#include <map>
#include <optional>

#include "tests/fault/processes.h"
#include "tests/shared/daemon_process.h"

/// What a client process saw.
struct LoadReport {
    long answers = 0;
    long exceptions = 0;  ///< of the kinds by which an exchange may fail
    long answersSinceException = 0;
    long slowest = 0;      ///< the longest call in milliseconds
    std::string mistakes;  ///< answers, files and errors that should not be; empty when all is well
};

/// A client with an object of its own, so that another client's answer is recognised. What its requests have
/// to bring is asked of an undisturbed daemon beforehand.
class LoadClient {
public:
    LoadClient(const TemporaryFolder& folder, unsigned number, Gateway& undisturbed);

    /// Starts a process that converts, dumps and queries the object, in a random order that comes from
    /// `seed`, until `stop` is set and an answer is the last thing that it had. With `reattach` an
    /// exception makes it look for the segment again, and it does not wait long for a channel.
    Child start(const std::string& segment, const SharedFlag& stop, unsigned seed,
                bool reattach = false) const;

    /// The report of such a process; nothing when it hangs beyond `limit`.
    static std::optional<LoadReport> report(Child& child, Clock::time_point limit);

private:
    enum Kind { query, dump, conversion, kinds };

    LoadReport run(const std::string& segment, const SharedFlag& stop, unsigned seed, bool reattach) const;
    void call(Gateway& gateway, Kind kind, LoadReport& report) const;
    TestRequest request(Kind kind) const;
    std::map<std::string, std::string> files() const;
    void removeFiles() const;

    std::string m_object;
    std::string m_output;
    std::string m_answers[kinds];
    std::map<std::string, std::string> m_files;
};
