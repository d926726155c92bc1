#pragma once

#include <sys/types.h>

#include <string>

/// What /proc/PID/stat says behind the process's name, which may hold anything: the state's letter and the
/// fields after it, apart by blanks. Empty where there is no such process, or none that may be looked at; one
/// may end at any moment.
std::string processStat(pid_t pid);

/// Whether such a text is of a process that has ended, and that only its parent waits for.
bool hasEnded(const std::string& stat);
