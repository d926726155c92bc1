#include "vintakd/pool/OneLineLayout.h"

#include <dcmtk/oflog/spi/logevent.h>

#include <string>

#include "hsutils/Utils.h"
#include "vintakd/ipc/QXLogger.h"

namespace dcmtk::log4cplus {

void OneLineLayout::formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) {
    // Standard error passes each piece on by itself: a line that is made first is one write.
    tostringstream line;
    formatLine(line, event);
    const tstring text = line.str();
    output.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void OneLineLayout::formatLine(tostream& output, const spi::InternalLoggingEvent& event) {
    if (event.getLoggerName() == GetQXLogger().getName()) {
        PatternLayout::formatAndAppend(output, event);
        return;
    }
    const tstring& message = event.getMessage();
    std::string text(message.data(), message.size());
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    const spi::InternalLoggingEvent shown(event.getLoggerName(), event.getLogLevel(), printable(text).c_str(),
                                          event.getFile().c_str(), event.getLine());
    PatternLayout::formatAndAppend(output, shown);
}

}  // namespace dcmtk::log4cplus
