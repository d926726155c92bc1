#include "vintakd/pool/JsonLayout.h"

#include <dcmtk/oflog/loglevel.h>
#include <dcmtk/oflog/spi/logevent.h>
#include <unistd.h>

#include <string>

#include "hsutils/jsontext.h"
#include "hsutils/utctime.h"
#include "vintakd/pool/logformat.h"

namespace {

std::string textOf(const dcmtk::log4cplus::tstring& text) {
    return {text.data(), text.size()};
}

}  // namespace

std::string jsonLogLine(const std::string& level, const std::string& members) {
    return "{\"time\":\"" + utcNow() + "\",\"level\":" + jsonText(level) +
           ",\"pid\":" + std::to_string(getpid()) + "," + members + "}\n";
}

namespace dcmtk::log4cplus {

void JsonLayout::formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) {
    const std::string level = textOf(getLogLevelManager().toString(event.getLogLevel()));
    std::string message = textOf(event.getMessage());
    while (!message.empty() && message.back() == '\n')
        message.pop_back();
    const bool aboutRequest = event.getLoggerName() == requestLogger().getName();
    output << jsonLogLine(level, aboutRequest ? message : "\"message\":" + jsonText(message)).c_str();
}

}  // namespace dcmtk::log4cplus
