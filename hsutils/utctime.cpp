#include "hsutils/utctime.h"

#include <time.h>

#include <cstddef>
#include <cstdio>

std::string utcNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char text[40];
    const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    (void)std::snprintf(text + length, sizeof text - length, ".%06ldZ", now.tv_nsec / 1000);
    return text;
}
