#include "tools/spool/Backlog.h"

#include <tuple>

bool Waiting::operator<(const Waiting& other) const {
    return std::tie(since.tv_sec, since.tv_nsec, name) <
           std::tie(other.since.tv_sec, other.since.tv_nsec, other.name);
}

void Backlog::add(const std::string& name, timespec since) {
    remove(name);
    // What was let go must not be overtaken by what is younger still.
    if (m_cut && !m_order.empty() && !(Waiting{since, name} < *m_order.rbegin())) return;
    if (m_cut && m_order.empty()) return;
    m_order.insert({since, name});
    m_times[name] = since;
    if (m_order.size() <= m_capacity) return;
    m_times.erase(m_order.rbegin()->name);
    m_order.erase(std::prev(m_order.end()));
    m_cut = true;
}

void Backlog::remove(const std::string& name) {
    const auto found = m_times.find(name);
    if (found == m_times.end()) return;
    m_order.erase({found->second, name});
    m_times.erase(found);
}

void Backlog::clear() {
    m_order.clear();
    m_times.clear();
    m_cut = false;
}
