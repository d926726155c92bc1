#include "tools/spool/SpoolFigures.h"

#include "tools/feeding/FigureText.h"

std::string SpoolFigures::text(double now) const {
    FigureText out("vintakd_spool_");
    out.single("metrics_time_seconds", "gauge", "When the feeder wrote this.", now);
    out.single("start_time_seconds", "gauge", "When the feeder started.", startTime);
    out.head("objects", "gauge", "Objects in the spool by state.");
    out.value("objects{state=\"waiting\"}", static_cast<double>(waiting));
    out.value("objects{state=\"working\"}", static_cast<double>(working));
    out.value("objects{state=\"retry\"}", static_cast<double>(parked));
    out.single("oldest_seconds", "gauge", "Age of the oldest waiting object, 0 for none.", oldestSeconds);
    out.single("paused", "gauge", "1 while there is no daemon or no place for results.", paused ? 1 : 0);
    out.single("done_total", "counter", "Objects that were done.", static_cast<double>(done));
    out.single("warned_total", "counter", "Those of them that came out incomplete.",
               static_cast<double>(warned));
    out.head("failed_total", "counter", "Objects that were set aside, by class of the error.");
    for (size_t i = 1; i < kErrorClasses; ++i)
        out.value(std::string("failed_total{class=\"") + nameOf(static_cast<ErrorClass>(i)) + "\"}",
                  static_cast<double>(failed[i]));
    out.single("retries_total", "counter", "Tries that came to nothing and are repeated.",
               static_cast<double>(retries));
    out.single("pauses_total", "counter", "Pauses of the whole feeder.", static_cast<double>(pauses));
    out.head("lag_seconds", "summary", "From an object's arrival to its results.");
    out.value("lag_seconds_sum", lagSeconds);
    out.value("lag_seconds_count", static_cast<double>(done));
    return out.text();
}
