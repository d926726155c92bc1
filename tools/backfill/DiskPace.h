#pragma once

#include <string>

/// How fast results reach the disk. A run of minutes is as fast as the processors; one of hours, whose
/// results are more than memory holds, as the slower of both.
struct DiskPace {
    double bytesPerSecond = 0;  ///< 0: not known
    double inMemory = 0;        ///< bytes that may wait in memory before who writes has to wait

    /// Seconds until no more than that of `bytes` is left to write.
    double seconds(double bytes) const;
};

/// Waits until all that was written on the file system of `folder` is on its disk, and returns for how many
/// seconds; below 0 where it cannot be asked for.
double settleDisk(const std::string& folder);

/// The pace of a disk that took `seconds` for `bytes`; not known where that is too little to tell.
DiskPace diskPace(double bytes, double seconds);
