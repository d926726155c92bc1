#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/layout.h>

namespace dcmtk::log4cplus {

/// A JSON object a line, always in UTF-8: "time" (UTC), "level", "pid" and "message", or in place of the
/// message what a line about a request says.
class JsonLayout : public Layout {
public:
    void formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) override;
};

}  // namespace dcmtk::log4cplus
