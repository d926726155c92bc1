#pragma once

/// Writes one diagnostic line to syslog: identity "PBItem", facility LOCAL3, priority debug; printf's format.
[[gnu::format(printf, 1, 2)]] void logPrivateBlock(const char* format, ...);
