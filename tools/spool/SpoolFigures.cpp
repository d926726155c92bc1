#include "tools/spool/SpoolFigures.h"

#include <cstdio>

namespace {

void head(std::string& text, const char* name, const char* type, const char* help) {
    text += std::string("# HELP vintakd_spool_") + name + " " + help + "\n# TYPE vintakd_spool_" + name +
            " " + type + "\n";
}

void value(std::string& text, const std::string& series, double number) {
    char digits[64];
    (void)snprintf(digits, sizeof digits, " %.17g\n", number);
    text += "vintakd_spool_" + series + digits;
}

void single(std::string& text, const char* name, const char* type, const char* help, double number) {
    head(text, name, type, help);
    value(text, name, number);
}

}  // namespace

std::string SpoolFigures::text(double now) const {
    std::string out;
    single(out, "metrics_time_seconds", "gauge", "When the feeder wrote this.", now);
    single(out, "start_time_seconds", "gauge", "When the feeder started.", startTime);
    head(out, "objects", "gauge", "Objects in the spool by state.");
    value(out, "objects{state=\"waiting\"}", static_cast<double>(waiting));
    value(out, "objects{state=\"working\"}", static_cast<double>(working));
    value(out, "objects{state=\"retry\"}", static_cast<double>(parked));
    single(out, "oldest_seconds", "gauge", "Age of the oldest waiting object, 0 for none.", oldestSeconds);
    single(out, "paused", "gauge", "1 while there is no daemon or no place for results.", paused ? 1 : 0);
    single(out, "done_total", "counter", "Objects that were done.", static_cast<double>(done));
    single(out, "warned_total", "counter", "Those of them that came out incomplete.",
           static_cast<double>(warned));
    head(out, "failed_total", "counter", "Objects that were set aside, by class of the error.");
    for (size_t i = 1; i < kErrorClasses; ++i)
        value(out, std::string("failed_total{class=\"") + nameOf(static_cast<ErrorClass>(i)) + "\"}",
              static_cast<double>(failed[i]));
    single(out, "retries_total", "counter", "Tries that came to nothing and are repeated.",
           static_cast<double>(retries));
    single(out, "pauses_total", "counter", "Pauses of the whole feeder.", static_cast<double>(pauses));
    head(out, "lag_seconds", "summary", "From an object's arrival to its results.");
    value(out, "lag_seconds_sum", lagSeconds);
    value(out, "lag_seconds_count", static_cast<double>(done));
    return out;
}
