#pragma once

#include <atomic>
#include <cstdint>

#include "vintakd/ipc/timeout.h"

namespace ipc {

class Channel;

/// The direction guard of one channel operation. Two parties that both send (or both receive) find the same
/// flag: the second raises the clash bit, meets the first at its barriers, and both throw
/// CommunicationMismatchException.
class ReentrancyHelper {
public:
    enum class Direction { sending = 0, receiving = 1 };

    /// Throws CommunicationMismatchException when the flag stays set: a peer that is only just leaving its
    /// last operation clears it within moments, so it is watched for a little before it is called a clash.
    ReentrancyHelper(Channel& channel, Direction direction, timeout limit);
    /// Clears the flag unless end() has.
    ~ReentrancyHelper() { end(); }
    ReentrancyHelper(const ReentrancyHelper&) = delete;
    ReentrancyHelper& operator=(const ReentrancyHelper&) = delete;

    /// After the first barrier: throws CommunicationMismatchException when the peer reported a clash.
    void checkError();
    /// Clears the flag. Always before the operation's last barrier: after it the peer may begin the next
    /// operation.
    void end();

private:
    bool takeFlag();
    void reportClash();

    Channel& m_channel;
    std::atomic<uint8_t>& m_flag;
    bool m_active = false;
    Direction m_direction;
    timeout m_limit;
};

}  // namespace ipc
