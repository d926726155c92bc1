#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/syslogap.h>

namespace dcmtk::log4cplus {

/// The framework's syslog appender with the facility LOCAL3.
class QXSysLogAppender : public SysLogAppender {
public:
    /// `identity` is the name that syslog shows.
    explicit QXSysLogAppender(const tstring& identity);
    ~QXSysLogAppender() override;
};

}  // namespace dcmtk::log4cplus
