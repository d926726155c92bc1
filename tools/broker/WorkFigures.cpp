#include "tools/broker/WorkFigures.h"

#include "tools/feeding/FigureText.h"

std::string WorkFigures::text(double now) const {
    FigureText out("vintakd_work_");
    out.single("metrics_time_seconds", "gauge", "When the worker wrote this.", now);
    out.single("start_time_seconds", "gauge", "When the worker started.", startTime);
    out.single("connected", "gauge", "1 while there is a broker.", connected ? 1 : 0);
    out.single("paused", "gauge", "1 while there is no daemon or no place for results.", paused ? 1 : 0);
    out.head("jobs", "gauge", "Jobs that the worker holds, by state.");
    out.value("jobs{state=\"waiting\"}", static_cast<double>(waiting));
    out.value("jobs{state=\"working\"}", static_cast<double>(working));
    out.single("done_total", "counter", "Jobs that were done.", static_cast<double>(done));
    out.single("warned_total", "counter", "Those of them that came out incomplete.",
               static_cast<double>(warned));
    out.head("failed_total", "counter", "Jobs that went to the dead letters, by class of the error.");
    for (size_t i = 1; i < kErrorClasses; ++i)
        out.value(std::string("failed_total{class=\"") + nameOf(static_cast<ErrorClass>(i)) + "\"}",
                  static_cast<double>(failed[i]));
    out.single("retries_total", "counter", "Tries that came to nothing and are repeated.",
               static_cast<double>(retries));
    out.single("returned_total", "counter", "Jobs that were given back untried.",
               static_cast<double>(returned));
    out.single("connections_lost_total", "counter",
               "Connections to the broker that broke or did not come about.", static_cast<double>(losses));
    out.head("conversion_seconds", "summary", "Time of the jobs that were done.");
    out.value("conversion_seconds_sum", seconds);
    out.value("conversion_seconds_count", static_cast<double>(done));
    return out.text();
}
