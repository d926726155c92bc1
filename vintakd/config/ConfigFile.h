#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "vintakd/config/ConfigReport.h"

/// A line of a configuration file that says something: neither empty nor a comment.
struct ConfigLine {
    size_t number = 0;  ///< from 1
    std::string text;   ///< without the white space around it

    // Of a line NAME = VALUE; quotes are blanks.
    std::string name;
    std::string value;
};

/// A configuration file, line by line; what is wrong with it goes into a report.
class ConfigFile {
public:
    /// Why a value makes no sense; nothing when it does.
    using Check = std::function<std::optional<std::string>(const ConfigLine&)>;

    /// Reads the file `name` in `folder` (null: there is none). A missing file has no lines; one that cannot
    /// be read is a problem, and so is a line of more than `longestLine` bytes.
    ConfigFile(const char* folder, std::string name, ConfigReport& report, size_t longestLine = 65535);

    const std::vector<ConfigLine>& lines() const { return m_lines; }
    const std::string& name() const { return m_name; }

    /// Keeps the lines that are entries NAME = VALUE, with a name for which `nearestTo` gives nothing (else
    /// the name that is meant, perhaps) and a value to which `check` has nothing to say.
    void takeEntries(const std::function<std::optional<std::string>(const std::string&)>& nearestTo,
                     const Check& check);
    /// The last line with that name, which is the one that counts; null where there is none.
    const ConfigLine* find(const std::string& name) const;

    /// Puts down what is wrong with a line.
    void refuse(const ConfigLine& line, const std::string& why);
    /// Puts down that a setting holds: as `line` has it, or null, the default.
    void hold(const std::string& name, const std::string& value, const ConfigLine* line);
    std::string at(const ConfigLine& line) const;

private:
    std::string m_name;
    std::string m_path;
    std::vector<ConfigLine> m_lines;
    ConfigReport& m_report;
};
