#include "privateblock/blocklog.h"

#include <errno.h>
#include <syslog.h>

#include <cstdarg>

// The connection stays open and the process gets its own name back: a process that has given up sockets could
// not connect again, and the program's own log may go the same way.
void logPrivateBlock(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    openlog("PBItem", LOG_PID, LOG_LOCAL3);
    vsyslog(LOG_DEBUG, format, arguments);
    openlog(program_invocation_short_name, 0, LOG_USER);
    va_end(arguments);
}
