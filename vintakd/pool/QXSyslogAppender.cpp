#include "vintakd/pool/QXSyslogAppender.h"

#include <syslog.h>

namespace dcmtk::log4cplus {

QXSysLogAppender::QXSysLogAppender(const tstring& identity) : SysLogAppender(identity) {
    facility = LOG_LOCAL3;
}

QXSysLogAppender::~QXSysLogAppender() {
    destructorImpl();
}

}  // namespace dcmtk::log4cplus
