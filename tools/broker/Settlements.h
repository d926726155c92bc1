#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tools/broker/BrokerConnection.h"

/// A delivery that can be settled.
struct Settled {
    uint64_t tag = 0;
    bool isSafe = false;  ///< what had to be said of it is safe with the broker
};

/// Deliveries that are settled once the broker has confirmed what was published in their place: nothing is
/// acknowledged before that. Numbers and tags are those of one connection.
class Settlements {
public:
    /// The delivery `tag` waits for the messages of these numbers.
    void add(uint64_t tag, const std::vector<uint64_t>& numbers);
    /// Takes note of what the broker says of messages; what can be settled by that.
    std::vector<Settled> take(const BrokerEvent& event);
    /// The connection is gone.
    void clear();

    bool isEmpty() const { return m_open.empty(); }

private:
    struct Open {
        size_t left = 0;
        bool isSafe = true;
    };

    void settle(std::map<uint64_t, uint64_t>::iterator message, bool isSafe, std::vector<Settled>& settled);

    std::map<uint64_t, Open> m_open;          ///< by tag
    std::map<uint64_t, uint64_t> m_messages;  ///< number to tag
};
