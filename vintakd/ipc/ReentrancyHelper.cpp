#include "vintakd/ipc/ReentrancyHelper.h"

#include "vintakd/ipc/Channel.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/trace.h"

#define TRACE_GUARD(method, text)                    \
    TRACE_CHANNEL(                                   \
        m_channel.index(), "ReentrancyHelper", this, \
        method "(flag:" << (m_direction == Direction::sending ? "sending" : "receiving") << "): " text)

namespace ipc {

ReentrancyHelper::ReentrancyHelper(Channel& channel, Direction direction, timeout limit)
    : m_channel(channel),
      m_flag(direction == Direction::sending ? channel.header().sending : channel.header().receiving),
      m_direction(direction),
      m_limit(limit) {
    m_active = takeFlag();
    if (m_active) {
        TRACE_GUARD("ReentrancyHelper", "flag is true");
        return;
    }
    TRACE_GUARD("ReentrancyHelper", "flag is already true");
    reportClash();
}

bool ReentrancyHelper::takeFlag() {
    if (m_flag.exchange(1) == 0) return true;
    constexpr timeout kPeerLeaves{2};
    try {
        acquire(m_flag, kPeerLeaves);
        return true;
    } catch (const TimeoutException&) {
        return false;
    }
}

void ReentrancyHelper::reportClash() {
    m_channel.setStatus(Channel::kStatusClash);
    try {
        m_channel.sync(m_limit);
        TRACE_GUARD("ReentrancyHelper", "after sync()");
        m_channel.sync_fast(m_limit);
        TRACE_GUARD("ReentrancyHelper", "after sync_fast()");
    } catch (const TimeoutException&) {
        m_channel.clearStatus(Channel::kStatusClash);
        throw;
    }
    TRACE_GUARD("ReentrancyHelper", "throw CommunicationMismatchException");
    throw CommunicationMismatchException();
}

void ReentrancyHelper::checkError() {
    if ((m_channel.status() & Channel::kStatusClash) == 0) return;
    TRACE_GUARD("checkError", "there is an error");
    m_channel.clearStatus(Channel::kStatusClash);
    end();
    m_channel.sync_fast(m_limit);
    TRACE_GUARD("checkError", "throw CommunicationMismatchException()");
    throw CommunicationMismatchException();
}

void ReentrancyHelper::end() {
    if (!m_active) return;
    m_active = false;
    m_flag.store(0);
    TRACE_GUARD("~ReentrancyHelper", "flag is false");
}

}  // namespace ipc
