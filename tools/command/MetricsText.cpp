#include "tools/command/MetricsText.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>

MetricsText::MetricsText(const std::string& run, const std::string& writer)
    : m_path(run + "/" + writer + ".prom") {
    errno = 0;
    std::ifstream file(m_path);
    if (file) m_text.assign(std::istreambuf_iterator<char>(file), {});
    if (m_text.empty())
        throw NoMetrics("no metrics: " + m_path + ": " +
                        (errno != 0 ? std::strerror(errno) : "the file is empty") + " (is " + writer +
                        " running, with " + run + " as its RUN?)");
    std::istringstream lines(m_text);
    for (std::string line; std::getline(lines, line);) {
        const size_t blank = line.rfind(' ');
        if (line.empty() || line[0] == '#' || blank == std::string::npos) continue;
        m_values[line.substr(0, blank)] = std::strtod(line.c_str() + blank + 1, nullptr);
    }
}

double MetricsText::age(const std::string& time) const {
    return static_cast<double>(std::time(nullptr)) - value(time);
}

double MetricsText::value(const std::string& series) const {
    const auto found = m_values.find(series);
    return found == m_values.end() ? 0 : found->second;
}

std::string MetricsText::labelOfGreatest(const std::string& metric, const std::string& label) const {
    const std::string start = metric + "{" + label + "=\"";
    std::string greatest;
    double most = 0;
    for (const auto& [series, number] : m_values) {
        if (series.rfind(start, 0) != 0 || number <= most) continue;
        most = number;
        greatest = series.substr(start.size(), series.find('"', start.size()) - start.size());
    }
    return greatest;
}

std::string runFolder(const std::string& given) {
    if (!given.empty()) return given;
    const char* run = getenv("RUN");
    return run && *run ? run : "/run/vintakd";
}
