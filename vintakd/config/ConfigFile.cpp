#include "vintakd/config/ConfigFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "hsutils/Utils.h"

namespace {

std::string trimmed(const std::string& text) {
    constexpr char kWhite[] = " \t\n\v\f\r";
    const size_t first = text.find_first_not_of(kWhite);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kWhite) - first + 1);
}

}  // namespace

ConfigFile::ConfigFile(const char* folder, std::string name, ConfigReport& report, size_t longestLine)
    : m_name(std::move(name)), m_report(report) {
    if (folder == nullptr) return;
    m_path = std::string(folder) + "/" + m_name;
    errno = 0;
    std::ifstream file(m_path);
    if (!file && errno == ENOENT) return;
    std::string text;
    for (size_t number = 1; std::getline(file, text); ++number) {
        ConfigLine line{.number = number, .text = trimmed(text), .name = {}, .value = {}};
        if (text.size() > longestLine)
            refuse(line, "a line has " + std::to_string(longestLine) + " bytes at most");
        else if (!line.text.empty() && line.text.front() != '#')
            m_lines.push_back(std::move(line));
    }
    if (!file.is_open() || file.bad())
        report.problems.push_back(printable(m_path + ": " + std::strerror(errno != 0 ? errno : EIO)));
}

void ConfigFile::takeEntries(const std::function<std::optional<std::string>(const std::string&)>& nearestTo,
                             const Check& check) {
    std::vector<ConfigLine> entries;
    for (ConfigLine& line : m_lines) {
        const size_t equals = line.text.find('=');
        line.name = trimmed(line.text.substr(0, equals));
        if (equals == std::string::npos || line.name.empty()) {
            refuse(line, "an entry is written NAME = VALUE");
            continue;
        }
        line.value = line.text.substr(equals + 1);
        std::replace(line.value.begin(), line.value.end(), '"', ' ');
        line.value = trimmed(line.value);
        if (const auto nearest = nearestTo(line.name))
            refuse(line, "there is no such entry; the nearest is " + *nearest);
        else if (const auto why = check(line))
            refuse(line, *why);
        else
            entries.push_back(std::move(line));
    }
    m_lines = std::move(entries);
}

const ConfigLine* ConfigFile::find(const std::string& name) const {
    const auto found = std::find_if(m_lines.rbegin(), m_lines.rend(),
                                    [&name](const ConfigLine& line) { return line.name == name; });
    return found == m_lines.rend() ? nullptr : &*found;
}

void ConfigFile::refuse(const ConfigLine& line, const std::string& why) {
    constexpr size_t kShown = 200;
    m_report.problems.push_back(printable(at(line) + ": " + line.text.substr(0, kShown) + ": " + why));
}

void ConfigFile::hold(const std::string& name, const std::string& value, const ConfigLine* line) {
    m_report.values.push_back(
        {m_name, printable(name), printable(value), line ? printable(at(*line)) : "default"});
}

std::string ConfigFile::at(const ConfigLine& line) const {
    return m_path + ":" + std::to_string(line.number);
}
