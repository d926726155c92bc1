#include "vintakd/QXSyslogAppender.h"

#include <syslog.h>

namespace dcmtk {
namespace log4cplus {

QXSysLogAppender::QXSysLogAppender(const tstring& identity) : SysLogAppender(identity) {
    facility = LOG_LOCAL3;
}

QXSysLogAppender::~QXSysLogAppender() {
    destructorImpl();
}

}  // namespace log4cplus
}  // namespace dcmtk
