#pragma once

/// Gives up, for the rest of the calling process's life, every system call that a servant at work does not
/// need: with a file parser taken over by its input in mind. What only an intruder would call (to execute
/// another program, to make processes, to trace others, to load kernel code) ends the process with SIGSYS;
/// sockets and everything else that is not on the list fail with EPERM. Files, memory and the process's own
/// signals stay allowed. Does nothing under a sanitizer, whose runtime needs more. Throws std::runtime_error
/// where the kernel takes no filter.
void installSystemCallFilter();
