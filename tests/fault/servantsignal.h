#pragma once

#include "tests/e2e/daemon_process.h"

/// Sends `signal` to the servant of a channel: to no other process, whatever has become of the servant's
/// pid. The servant's pid; 0 when there is none to be had.
pid_t signalServant(DaemonProcess& daemon, size_t channel, int signal);

/// Whether each of the daemon's channels has a servant and is free.
bool allFree(DaemonProcess& daemon, size_t channels);

/// How often `text` occurs in the daemon's log.
size_t countInLog(const DaemonProcess& daemon, const std::string& text);

/// Gives every channel this time-out in place of the daemon's, and makes the idle servants take note of it.
void setChannelTimeouts(DaemonProcess& daemon, int milliseconds);
