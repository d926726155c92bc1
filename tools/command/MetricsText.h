#pragma once

#include <map>
#include <stdexcept>
#include <string>

/// There are no figures to be had; the text says where they were looked for, and why they are not there.
class NoMetrics : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The figures that the daemon, or the feeder of a spool, writes into the run directory.
class MetricsText {
public:
    /// Reads "`writer`.prom" in the folder `run`. Throws NoMetrics.
    explicit MetricsText(const std::string& run, const std::string& writer = "vintakd");

    const std::string& text() const { return m_text; }
    const std::string& path() const { return m_path; }
    /// Seconds since they were written, which the series `time` tells.
    double age(const std::string& time = "vintakd_metrics_time_seconds") const;
    /// Whether the daemon has written them lately, as it does while it is well.
    bool isFresh(const std::string& time = "vintakd_metrics_time_seconds") const {
        return age(time) <= kStale;
    }
    /// The value of a series, named as in the text; 0 where there is none.
    double value(const std::string& series) const;
    /// The value of the label `label` of the series of `metric` with the greatest value above 0; empty where
    /// there is none.
    std::string labelOfGreatest(const std::string& metric, const std::string& label) const;

    static constexpr double kStale = 30;  ///< s

private:
    std::string m_path;
    std::string m_text;
    std::map<std::string, double> m_values;
};

/// The daemon's run directory: `given`, else the environment variable RUN, else the one of the packages.
std::string runFolder(const std::string& given);
