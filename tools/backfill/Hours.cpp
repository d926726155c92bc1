#include "tools/backfill/Hours.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace {

/// The minute of the day that "HH:MM" is; -1 where it is none. 24:00 is the day's end.
int minuteOf(std::string_view text) {
    int hour = -1, minute = -1;
    const size_t colon = text.find(':');
    const auto isRead = [](std::string_view digits, int& number) {
        const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        return error == std::errc() && rest == digits.data() + digits.size() && number >= 0;
    };
    if (colon == std::string_view::npos || !isRead(text.substr(0, colon), hour) ||
        !isRead(text.substr(colon + 1), minute))
        return -1;
    return hour <= 24 && minute < 60 && hour * 60 + minute <= 1440 ? hour * 60 + minute : -1;
}

}  // namespace

Hours::Hours(const std::string& text) {
    std::istringstream spans(text);
    for (std::string span; std::getline(spans, span, ',');) {
        const size_t dash = span.find('-');
        const int from = minuteOf(span.substr(0, dash));
        const int to = dash == std::string::npos ? -1 : minuteOf(span.substr(dash + 1));
        if (from < 0 || to < 0 || from == 1440 || from == to)
            throw std::invalid_argument("hours are HH:MM-HH:MM, not \"" + span + "\"");
        m_spans.emplace_back(from, to);
    }
    if (m_spans.empty()) throw std::invalid_argument("no hours are given");
}

bool Hours::hold(std::time_t time) const {
    std::tm parts{};
    localtime_r(&time, &parts);
    return holdAt(parts.tm_hour * 60 + parts.tm_min);
}

bool Hours::holdAt(int minute) const {
    return m_spans.empty() || std::any_of(m_spans.begin(), m_spans.end(), [minute](const auto& span) {
               const auto [from, to] = span;
               return from < to ? from <= minute && minute < to : from <= minute || minute < to;
           });
}

double Hours::share() const {
    int minutes = 0;
    for (int minute = 0; minute < 1440; ++minute)
        minutes += holdAt(minute) ? 1 : 0;
    return minutes / 1440.0;
}
