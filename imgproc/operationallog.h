#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

/// The program's operational log, for what its users should hear about.
inline OFLogger& operationalLogger() {
    static OFLogger logger = OFLog::getLogger("qxnative.logger");
    return logger;
}
