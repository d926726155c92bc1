#include "vintakd/pool/logformat.h"

#include <dcmtk/oflog/appender.h>
#include <dcmtk/oflog/logger.h>

#include "vintakd/pool/JsonLayout.h"
#include "vintakd/pool/OneLineLayout.h"

namespace {

bool s_json = false;

}  // namespace

void setLogFormat(const char* pattern, bool json) {
    using namespace dcmtk::log4cplus;
    s_json = json;
    for (SharedAppenderPtr& appender : Logger::getRoot().getAllAppenders()) {
        OFunique_ptr<Layout> layout;
        if (json)
            layout.reset(new JsonLayout());
        else
            layout.reset(new OneLineLayout(pattern));
        appender->setLayout(OFmove(layout));
    }
}

bool logIsJson() {
    return s_json;
}

OFLogger requestLogger() {
    static OFLogger logger = OFLog::getLogger("vintakd.request");
    return logger;
}
