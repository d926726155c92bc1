#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>

/// Whether `pid` is a process that can still act; a zombie is none.
bool processLives(pid_t pid);

/// How a child ended, in words: "was killed by SIGKILL (Killed)", "exited with status 1 (EXIT_FAILURE)".
std::string describeDeath(const siginfo_t& death);
