#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/layout.h>

#include <string>

namespace dcmtk::log4cplus {

/// A JSON object a line, always in UTF-8: "time" (UTC), "level", "pid" and "message", or in place of the
/// message what a line about a request says.
class JsonLayout : public Layout {
public:
    void formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) override;
};

}  // namespace dcmtk::log4cplus

/// A line of the log in JSON, with its end: the members that all lines have, and `members`. For what cannot
/// go through the framework.
std::string jsonLogLine(const std::string& level, const std::string& members);
