#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/layout.h>

namespace dcmtk::log4cplus {

/// The framework's pattern layout for a log to which the toolkit writes as well: what it says may hold values
/// of an object or a path, which are not to make lines of their own. Control characters in a message of any
/// logger but GetQXLogger() become question marks; the program's own messages have lines of their own making.
class OneLineLayout : public PatternLayout {
public:
    using PatternLayout::PatternLayout;
    void formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) override;

private:
    void formatLine(tostream& output, const spi::InternalLoggingEvent& event);
};

}  // namespace dcmtk::log4cplus
