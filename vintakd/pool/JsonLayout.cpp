#include "vintakd/pool/JsonLayout.h"

#include <dcmtk/oflog/loglevel.h>
#include <dcmtk/oflog/spi/logevent.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "hsutils/jsontext.h"
#include "vintakd/pool/logformat.h"

namespace dcmtk::log4cplus {

namespace {

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

std::string textOf(const tstring& text) {
    return {text.data(), text.size()};
}

}  // namespace

void JsonLayout::formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) {
    const tstring& level = getLogLevelManager().toString(event.getLogLevel());
    std::string message = textOf(event.getMessage());
    while (!message.empty() && message.back() == '\n')
        message.pop_back();
    const bool aboutRequest = event.getLoggerName() == requestLogger().getName();
    const std::string line = "{\"time\":\"" + utcNow() + "\",\"level\":" + jsonText(textOf(level)) +
                             ",\"pid\":" + std::to_string(getpid()) + "," +
                             (aboutRequest ? message : "\"message\":" + jsonText(message)) + "}\n";
    output << line.c_str();
}

}  // namespace dcmtk::log4cplus
