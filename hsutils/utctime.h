#pragma once

#include <string>

/// The time now as logs and event files have it: 2026-01-31T12:00:00.123456Z, in UTC, with microseconds.
std::string utcNow();
