#pragma once

#include <iomanip>
#include <sstream>

#include "vintakd/ipc/VintakLog.h"

/// Trace lines of the shared-memory layer. The text is built only while the trace is on.
/// TRACE_OBJECT("     Class[", this, "method(" << argument << ")") writes `     Class[address]::method(...)`.
#define TRACE_OBJECT(prefix, object, text)                                         \
    do {                                                                           \
        if (VintakLog::IsEnabled()) {                                              \
            std::ostringstream trace_;                                             \
            trace_ << prefix << static_cast<const void*>(object) << "]::" << text; \
            VintakLog::Log(trace_.str());                                          \
        }                                                                          \
    } while (false)

/// The same for an object tied to a channel: `CHnn Class[address]::...`.
#define TRACE_CHANNEL(index, name, object, text)                                                            \
    TRACE_OBJECT("CH" << std::setw(2) << std::setfill('0') << (index) << std::setfill(' ') << " " name "[", \
                 object, text)
