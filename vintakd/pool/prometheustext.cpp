#include "vintakd/pool/prometheustext.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "hsutils/Utils.h"

namespace {

/// Writes one metric after the other.
class Exposition {
public:
    /// The head of a metric, whose values follow.
    void metric(const char* name, const char* type, const char* help) {
        m_name = name;
        m_text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }
    /// One value; `labels` without braces.
    void value(const std::string& labels, uint64_t number) { line("", labels, std::to_string(number)); }
    void value(const std::string& labels, double number) { line("", labels, decimal(number)); }

    void histogram(const std::string& label, const DurationHistogram& durations) {
        uint64_t sum = 0;
        for (size_t i = 0; i < durations.buckets.size(); ++i) {
            sum += durations.buckets[i];
            const std::string bound =
                i < DurationHistogram::kBounds.size() ? decimal(DurationHistogram::kBounds[i]) : "+Inf";
            line("_bucket", (label.empty() ? "" : label + ",") + "le=\"" + bound + "\"", std::to_string(sum));
        }
        line("_sum", label, decimal(static_cast<double>(durations.nanoseconds.load()) / 1e9));
        line("_count", label, std::to_string(sum));
    }

    std::string take() { return std::move(m_text); }

private:
    static std::string decimal(double number) {
        char text[40];
        (void)std::snprintf(text, sizeof text, "%.12g", number);
        return text;
    }
    void line(const char* suffix, const std::string& labels, const std::string& number) {
        m_text += m_name + suffix + (labels.empty() ? "" : "{" + labels + "}") + " " + number + "\n";
    }

    std::string m_name;
    std::string m_text;
};

std::string label(const char* name, const std::string& value) {
    return std::string(name) + "=\"" + value + "\"";
}

/// A label with each value of an enumeration.
template <class Value, class Action>
void forEach(const char* name, size_t count, Action action) {
    for (size_t i = 0; i < count; ++i)
        action(label(name, nameOf(static_cast<Value>(i))), i);
}

void writeProcess(Exposition& out, const PoolCounters& counters, const PoolGauges& gauges) {
    out.metric("vintakd_build_info", "gauge", "The version that runs; always 1.");
    out.value(label("version", gauges.version), uint64_t{1});
    out.metric("vintakd_start_time_seconds", "gauge", "When the daemon started, in seconds since 1970.");
    out.value("", static_cast<double>(counters.startTime));
    out.metric("vintakd_metrics_time_seconds", "gauge",
               "When the supervisor wrote these figures, in seconds since 1970.");
    out.value("", static_cast<double>(gauges.now));
}

void writeServantLives(Exposition& out, const PoolCounters& counters) {
    out.metric("vintakd_servant_starts_total", "counter", "Servant processes that were forked.");
    out.value("", counters.starts.load());
    out.metric("vintakd_servant_start_failures_total", "counter",
               "Servant processes that could not be forked.");
    out.value("", counters.failedStarts.load());
    out.metric("vintakd_servant_renewals_total", "counter",
               "Servants that had served their number of requests.");
    out.value("", counters.renewals.load());
    out.metric("vintakd_servant_deaths_total", "counter", "Servants that ended otherwise, by reason.");
    forEach<DeathReason>("reason", kDeathReasons, [&](const std::string& labels, size_t i) {
        out.value(labels, counters.deaths[i].load());
    });
    out.metric("vintakd_servant_last_death_time_seconds", "gauge",
               "When a servant last ended so, in seconds since 1970; 0 for never.");
    forEach<DeathReason>("reason", kDeathReasons, [&](const std::string& labels, size_t i) {
        out.value(labels, static_cast<double>(counters.lastDeaths[i]));
    });
}

void writeServants(Exposition& out, const PoolCounters& counters, const PoolGauges& gauges) {
    const auto count = [&](auto condition) {
        return static_cast<uint64_t>(
            std::count_if(gauges.servants.begin(), gauges.servants.end(), condition));
    };
    out.metric("vintakd_servants", "gauge", "Servant processes by what they do.");
    out.value(label("state", "idle"), count([](auto& each) { return each.ready && each.busySeconds <= 0; }));
    out.value(label("state", "busy"), count([](auto& each) { return each.ready && each.busySeconds > 0; }));
    out.value(label("state", "starting"), count([](auto& each) { return !each.ready; }));

    double oldest = 0;
    out.metric("vintakd_channel_request_seconds", "gauge",
               "Age of the request that a channel's servant works on; 0 when it has none.");
    for (size_t i = 0; i < gauges.servants.size(); ++i) {
        out.value(label("channel", std::to_string(i)), gauges.servants[i].busySeconds);
        oldest = std::max(oldest, gauges.servants[i].busySeconds);
    }
    out.metric("vintakd_oldest_request_seconds", "gauge",
               "Age of the oldest request that is not finished; 0 when there is none.");
    out.value("", oldest);

    const int64_t fullSince = counters.fullSince;
    const double fullNow = fullSince > 0 ? nanoToSec(std::max<int64_t>(gauges.nanoNow - fullSince, 0)) : 0;
    out.metric("vintakd_pool_full_total", "counter", "Requests that took the last free servant.");
    out.value("", counters.timesFull.load());
    out.metric("vintakd_pool_full_seconds_total", "counter",
               "Time in which every servant was at work, so that whoever came had to wait.");
    out.value("", static_cast<double>(counters.fullNanoseconds.load()) / 1e9 + fullNow);
}

void writeRequests(Exposition& out, const PoolCounters& counters) {
    out.metric("vintakd_requests_total", "counter", "Requests that are over, by kind and result.");
    forEach<RequestKind>("kind", kRequestKinds, [&](const std::string& kind, size_t i) {
        forEach<RequestResult>("result", kRequestResults, [&](const std::string& result, size_t j) {
            out.value(kind + "," + result, counters.requests[i][j].load());
        });
    });
    out.metric("vintakd_request_errors_total", "counter",
               "Requests that came to nothing, by kind and class of error.");
    forEach<RequestKind>("kind", kRequestKinds, [&](const std::string& kind, size_t i) {
        forEach<ErrorClass>("class", kErrorClasses, [&](const std::string& errorClass, size_t j) {
            if (static_cast<ErrorClass>(j) != ErrorClass::none)
                out.value(kind + "," + errorClass, counters.errors[i][j].load());
        });
    });
    out.metric("vintakd_files_total", "counter", "Objects that were converted, dumped or asked for values.");
    out.value("", counters.files.load());
    out.metric("vintakd_frames_total", "counter", "Frames whose files were written.");
    out.value("", counters.frames.load());
    out.metric("vintakd_read_bytes_total", "counter", "Bytes of the files of the objects.");
    out.value("", counters.bytesRead.load());
    out.metric("vintakd_written_bytes_total", "counter", "Bytes of the files that were written.");
    out.value("", counters.bytesWritten.load());
    out.metric("vintakd_request_duration_seconds", "histogram", "How long requests took, by kind.");
    forEach<RequestKind>("kind", kRequestKinds, [&](const std::string& labels, size_t i) {
        out.histogram(labels, counters.requestDurations[i]);
    });
    out.metric("vintakd_reservation_wait_seconds", "histogram",
               "How long clients waited for a free servant, of those that tell.");
    out.histogram("", counters.reservations);
    out.metric("vintakd_stage_duration_seconds", "histogram",
               "How long requests spent in a stage, of those that had it.");
    forEach<Stage>("stage", kStages, [&](const std::string& labels, size_t i) {
        out.histogram(labels, counters.stageDurations[i]);
    });
}

}  // namespace

std::string prometheusText(const PoolCounters& counters, const PoolGauges& gauges) {
    Exposition out;
    writeProcess(out, counters, gauges);
    writeServants(out, counters, gauges);
    writeServantLives(out, counters);
    writeRequests(out, counters);
    return out.take();
}
