#include "privateblock/blocklog.h"

#include <syslog.h>

#include <cstdarg>

void logPrivateBlock(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    openlog("PBItem", LOG_PID, LOG_LOCAL3);
    vsyslog(LOG_DEBUG, format, arguments);
    closelog();
    va_end(arguments);
}
