#pragma once

#include <cstdint>
#include <string>

/// What one servant process may use. 0 is no limit, except for core files, where it means none.
struct ServantLimits {
    uint64_t addressSpaceBytes = uint64_t{8} << 30;  ///< RLIMIT_AS; beyond it a request fails: out of memory
    uint64_t fileBytes = uint64_t{4} << 30;  ///< RLIMIT_FSIZE; beyond it a write fails: file too large
    /// Bytes of all output files of one request; beyond it the request fails and leaves none. A hundred
    /// thousand frames of 512 x 512 16-bit pixels that nothing can compress need 104 GiB, with every kind of
    /// file.
    uint64_t outputBytes = uint64_t{128} << 30;
    uint64_t descriptors = 64;        ///< RLIMIT_NOFILE
    uint64_t coreBytes = 0;           ///< RLIMIT_CORE; a core file holds patients' data
    uint64_t cpuSeconds = 1800;       ///< processor time of one request; beyond it SIGXCPU ends the servant
    uint64_t deadlineSeconds = 1800;  ///< time of one request; beyond it the supervisor kills the servant
    bool systemCallFilter = true;     ///< whether a servant gives up system calls that it does not need

    /// No limit at all.
    static ServantLimits none();

    /// The defaults, changed by what stands in "limits.conf" in `folder` (null: no folder). Throws
    /// std::runtime_error that names the file, the name and the value of an entry that makes no sense, and
    /// for a name that is not known the nearest one.
    static ServantLimits read(const char* folder);

    /// Sets the limits of the calling process; a system's own lower hard limits stay. Throws
    /// std::runtime_error.
    void apply() const;

    /// Allows the calling process cpuSeconds of processor time from now on.
    void allowRequest() const;
};
