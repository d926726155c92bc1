#include "tools/broker/Settlements.h"

void Settlements::add(uint64_t tag, const std::vector<uint64_t>& numbers) {
    m_open[tag].left = numbers.size();
    for (const uint64_t number : numbers)
        m_messages[number] = tag;
}

std::vector<Settled> Settlements::take(const BrokerEvent& event) {
    std::vector<Settled> settled;
    const auto exact = m_messages.find(event.tag);
    if (event.kind == BrokerEvent::Kind::returned) {
        // A message that no queue took is "confirmed" all the same, right after.
        if (exact != m_messages.end()) m_open[exact->second].isSafe = false;
        return settled;
    }
    const bool isSafe = event.kind == BrokerEvent::Kind::confirmed;
    if (!isSafe && event.kind != BrokerEvent::Kind::refused) return settled;
    if (event.multiple) {
        while (!m_messages.empty() && m_messages.begin()->first <= event.tag)
            settle(m_messages.begin(), isSafe, settled);
    } else if (exact != m_messages.end()) {
        settle(exact, isSafe, settled);
    }
    return settled;
}

void Settlements::settle(std::map<uint64_t, uint64_t>::iterator message, bool isSafe,
                         std::vector<Settled>& settled) {
    const uint64_t tag = message->second;
    m_messages.erase(message);
    Open& open = m_open[tag];
    open.isSafe = open.isSafe && isSafe;
    if (--open.left > 0) return;
    settled.push_back({tag, open.isSafe});
    m_open.erase(tag);
}

void Settlements::clear() {
    m_open.clear();
    m_messages.clear();
}
