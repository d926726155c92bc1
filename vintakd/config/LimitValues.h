#pragma once

#include <cstdint>

#include "vintakd/config/ConfigReport.h"

/// What one servant process may use, as "limits.conf" has it. 0 is no limit, except for core files, where it
/// means none.
struct LimitValues {
    uint64_t addressSpaceBytes = uint64_t{8} << 30;  ///< beyond it a request fails: out of memory
    uint64_t fileBytes = uint64_t{4} << 30;          ///< of one file; beyond it a write fails: file too large
    /// Bytes of all output files of one request; beyond it the request fails and leaves none. A hundred
    /// thousand frames of 512 x 512 16-bit pixels that nothing can compress need 104 GiB, with every kind of
    /// file.
    uint64_t outputBytes = uint64_t{128} << 30;
    uint64_t descriptors = 64;        ///< open files
    uint64_t coreBytes = 0;           ///< a core file holds patients' data
    uint64_t cpuSeconds = 1800;       ///< processor time of one request; beyond it SIGXCPU ends the servant
    uint64_t frameCpuSeconds = 300;   ///< processor time from one frame of a conversion to the next; the same
    uint64_t deadlineSeconds = 1800;  ///< time of one request; beyond it the supervisor kills the servant
    bool systemCallFilter = true;     ///< whether a servant gives up system calls that it does not need

    /// No limit at all.
    static LimitValues unlimited();

    /// The defaults, changed by what stands in "limits.conf" in `folder` (null: no folder). What holds, and
    /// what makes no sense, goes into the report.
    static LimitValues read(const char* folder, ConfigReport& report);
};
