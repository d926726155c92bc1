#include "vintakd/pool/logformat.h"

#include <dcmtk/oflog/appender.h>
#include <dcmtk/oflog/logger.h>

#include "hsutils/jsontext.h"
#include "vintakd/pool/JsonLayout.h"
#include "vintakd/pool/OneLineLayout.h"

namespace {

bool s_json = false;

}  // namespace

void setLogFormat(const char* pattern, bool json) {
    using namespace dcmtk::log4cplus;
    s_json = json;
    for (SharedAppenderPtr& appender : Logger::getRoot().getAllAppenders()) {
        Layout* layout = json ? static_cast<Layout*>(new JsonLayout()) : new OneLineLayout(pattern);
        appender->setLayout(OFunique_ptr<Layout>(layout));
    }
}

std::string lineBesideLog(const std::string& text) {
    return s_json ? jsonLogLine("ERROR", "\"message\":" + jsonText(text)) : text + "\n";
}

bool logIsJson() {
    return s_json;
}

OFLogger requestLogger() {
    static OFLogger logger = OFLog::getLogger("vintakd.request");
    return logger;
}
