#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdlib>

#include "vintakd/ipc/Gateway.h"

/// A gateway whose table a test may look into while others work on it.
template <class Base>
class OpenTable : public Base {
public:
    using Base::Base;
    using Base::entry;
    using Base::header;
    using Base::lockTable;

    /// The pid of the servant of a channel; 0 while it has none that is ready.
    int32_t servant(size_t index) { return std::atomic_ref(entry(index).servantPid).load(); }
    ChannelState state(size_t index) { return std::atomic_ref(entry(index).state).load(); }
};

using OpenGateway = OpenTable<Gateway>;

/// How many requests a servant process serves before it retires: it draws the number after seeding with its
/// pid.
inline int requestsOfServant(pid_t servant) {
    srand(static_cast<unsigned>(servant));
    return rand() % 1000 + 1000;  // NOLINT(cert-msc30-c,cert-msc50-cpp): the same numbers as the servant's
}
