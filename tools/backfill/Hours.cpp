#include "tools/backfill/Hours.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

Hours::Hours(const std::string& text) {
    std::istringstream spans(text);
    for (std::string span; std::getline(spans, span, ',');) {
        int fromHour = 0, fromMinute = 0, toHour = 0, toMinute = 0;
        char rest = 0;
        const int read =
            sscanf(span.c_str(), "%2d:%2d-%2d:%2d%c", &fromHour, &fromMinute, &toHour, &toMinute, &rest);
        const int from = fromHour * 60 + fromMinute, to = toHour * 60 + toMinute;
        const bool isRight = read == 4 && std::min({fromHour, fromMinute, toHour, toMinute}) >= 0 &&
                             std::max(fromMinute, toMinute) < 60 && from < 1440 && to <= 1440 && from != to;
        if (!isRight) throw std::invalid_argument("hours are HH:MM-HH:MM, not \"" + span + "\"");
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
