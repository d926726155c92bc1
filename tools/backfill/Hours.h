#pragma once

#include <ctime>
#include <string>
#include <utility>
#include <vector>

/// Hours of the day, in local time.
class Hours {
public:
    /// All of them.
    Hours() = default;
    /// "20:00-06:00,12:00-13:00": from, inclusive, to, exclusive; over midnight where the end comes first.
    /// Throws std::invalid_argument.
    explicit Hours(const std::string& text);

    bool hold(std::time_t time) const;
    /// The same of a minute of the day, 0 to 1439.
    bool holdAt(int minute) const;

    /// Of the day, above 0 to 1.
    double share() const;

private:
    std::vector<std::pair<int, int>> m_spans;  ///< minutes of the day
};
