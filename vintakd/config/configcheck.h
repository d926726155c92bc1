#pragma once

#include "vintakd/config/ConfigReport.h"
#include "vintakd/config/LimitValues.h"

/// The whole configuration: what a look at all its files found, and the values that the daemon takes from
/// there at its start. The others are read again for each object, by rules that pass over what they do not
/// understand.
struct Configuration {
    ConfigReport report;
    LimitValues limits;
    bool logIsJson = false;  ///< LOG_FORMAT of "log.conf"
};

/// Looks at "limits.conf", "log.conf", "thumbnail.conf", "jpeg2000lossy.conf" and "include.conf" in the
/// folder `conf`, and at "privtags.cfg" in `downloadHome`; null where a folder is not set.
Configuration checkConfiguration(const char* conf, const char* downloadHome);
