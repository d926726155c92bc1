#include "vintakd/ipc/QXLogger.h"

OFLogger GetQXLogger() {
    static OFLogger logger = OFLog::getLogger("qxnative.logger");
    return logger;
}
