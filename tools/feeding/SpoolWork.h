#pragma once

#include <sys/stat.h>
#include <time.h>

#include <cstdint>
#include <string>
#include <vector>

#include "hsutils/errorclass.h"

/// One object of the spool that was claimed.
struct SpoolObject {
    std::string name;     ///< in every folder of the spool
    std::string path;     ///< absolute, in "working"
    timespec arrived{};   ///< when it got its name in "incoming", or was last written there
    timespec modified{};  ///< with the size: its version
    int64_t size = 0;     ///< bytes
    unsigned tries = 0;   ///< that came to nothing so far
    bool priority = false;
    uint64_t ticket = 0;  ///< for whoever gives it out

    /// What its results and events are known by: the name without ".dcm".
    std::string key() const;
    /// A word that differs between two versions of one name: "SECONDS.NANOSECONDS-BYTES".
    std::string version() const;
    /// Whether the file still is what was claimed; one that a receiver had open may be written on.
    bool isUnchanged() const;
};

/// The name without ".dcm"; two files with the same one are never at work together.
std::string keyOf(const std::string& name);

/// A file that came out.
struct SpoolOutput {
    std::string path;
    uint64_t size = 0;
};

/// What became of an object.
struct WorkResult {
    enum class Kind : uint8_t {
        done,
        submitted,    ///< somebody else will do it and has all that he needs
        failed,       ///< for the reason in `errorClass` and `cause`
        passed,       ///< there is nothing to do with it, see `cause`
        changed,      ///< it was written on meanwhile; nothing of the try was kept
        unreachable,  ///< nobody was there to do it, see `cause`: not the object's fault
    };
    Kind kind = Kind::failed;
    ErrorClass errorClass = ErrorClass::none;
    std::string cause{};
    std::string study{}, series{}, object{};  ///< instance UIDs; empty where they could not be read
    std::vector<SpoolOutput> outputs{};
    std::vector<std::string> warnings{};
    double seconds = 0;
    std::string version{};  ///< of the object, where whoever gave it out could not tell
    std::string job{};      ///< its id at a broker, where it has one
    bool isRepeat = false;  ///< `done` by someone else before: there is nothing to tell of it
};

/// What the spool does with its objects: it converts them, or hands them to someone who does.
class SpoolWork {
public:
    virtual ~SpoolWork() = default;

    /// Called by several threads at once, never for two objects of one key at a time. Results are all there
    /// when it returns `done`, and nothing of them when it returns something else. It may be called again for
    /// an object that it has done before: the feeder may have ended before it could write that down.
    virtual WorkResult run(const SpoolObject& object) = 0;
};
