#pragma once

#include <functional>
#include <string>

#include "tools/backfill/DiskPace.h"
#include "tools/backfill/Hours.h"
#include "tools/backfill/Sample.h"
#include "tools/feeding/SpoolWork.h"

/// What an archive would take, from a sample of it that was worked on.
struct Estimate {
    int64_t objects = 0, bytes = 0;             ///< of the archive, counted
    int64_t unreadable = 0;                     ///< folders
    int64_t tried = 0, failed = 0, passed = 0;  ///< of the sample
    double seconds = 0;                         ///< of work, with so many at a time as in the sample
    double spread = 0;   ///< of the seconds, by chance: 95 of 100 samples differ by less
    double written = 0;  ///< bytes of results
    double sampled = 0;  ///< bytes of the sample's results
    double onDisk = 0;   ///< seconds until the results are written, where the disk is slower than the work
};

/// Has about `most` objects of a sample worked on, `jobs` at a time, more of the classes that have more
/// bytes; then others, until that took some seconds or there are no others. `everySecond` does meanwhile what
/// a run does beside the work. Throws std::runtime_error when nobody is there to do it.
Estimate estimate(const Sample& sample, const std::string& archive, SpoolWork& work, size_t jobs, size_t most,
                  const std::function<void()>& everySecond = nullptr);

/// Has the estimate heed how fast results are written.
void limitByDisk(Estimate& estimate, const DiskPace& pace);

/// How long that takes by the clock, with a limit of objects a second (0: none) and hours.
double calendarSeconds(const Estimate& estimate, double rate, const Hours& hours);
std::string textOf(const Estimate& estimate, double calendarSeconds);
std::string jsonOf(const Estimate& estimate, double calendarSeconds);
