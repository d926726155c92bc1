#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

/// The logger "qxnative.logger" of the toolkit's logging framework: the program's operational log, at INFO or
/// ERROR.
inline OFLogger GetQXLogger() {
    static OFLogger logger = OFLog::getLogger("qxnative.logger");
    return logger;
}
