#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "vintakd/ipc/BareChannel.h"
#include "vintakd/ipc/Message.h"
#include "vintakd/ipc/spinlock.h"

namespace ipc {

/// One message channel of the gateway segment: a rendezvous between exactly two parties, one thread each. A
/// send completes only together with the peer's recv; a message of any length passes through the region in
/// chunks. Every operation may throw TimeoutException (a barrier ran out of time: the channel is then out of
/// step), CommunicationMismatchException (both sides sent, or both received) and what the class comment of
/// each says.
class Channel : public BareChannel {
public:
    struct ChannelHeader {
        SpinLockByte spinLock{0};
        std::atomic<uint32_t> status{0};
        std::atomic<uint8_t> sending{0};
        std::atomic<uint8_t> receiving{0};
        alignas(8) uint64_t messageLength = 0;
        std::atomic<int32_t> timeoutMilliseconds{-1};
        std::atomic<int64_t> lastSeconds{0};
        std::atomic<int64_t> lastMicroseconds{0};
    };

    static constexpr uint32_t kStatusClash = 1;
    static constexpr uint32_t kStatusUserError = 2;
    static constexpr uint32_t kStatusRenew = 4;

    /// The region at `memory` (`size` bytes); with `init` it is initialised. `index` appears in log
    /// lines.
    Channel(void* memory, uint64_t size, bool init, int index);
    ~Channel();

    /// The header of the region at `memory`, for whoever has no channel object of it.
    static ChannelHeader& headerOf(void* memory);

    /// Sends `length` bytes; without a time-out, with the channel's own.
    void send(const void* data, uint64_t length, timeout limit);
    void send(const void* data, uint64_t length);

    /// Makes the peer's recv throw UserException.
    void send_error(timeout limit);
    void send_error();

    /// Receives one message. Throws UserException when the peer signalled an error, MessageTooLongException
    /// when the message is longer than the receive limit, std::bad_alloc when there is no memory for it; in
    /// the last two cases the message has been taken off the channel, which stays in step. What the message
    /// used of the data area is zero again when recv returns: every local user can read the segment.
    Message recv(timeout limit);
    Message recv();
    /// The same, but waits up to `arrival` for a message to begin.
    Message recv(timeout arrival, timeout inside);

    /// Longest message that recv holds, in bytes; a property of this object, not of the channel.
    void setReceiveLimit(uint64_t bytes) { m_receiveLimit = bytes; }
    static constexpr uint64_t kNoReceiveLimit = std::numeric_limits<uint64_t>::max();

    /// The channel's own time-out, and the time of the last message or reservation: shared by all processes.
    /// A header lock that a dead process left held delays each of the four by a second at most.
    void setTimeout(timeout limit);
    timeout getTimeout();
    void updateLastCommunication();
    timeval getLastCommunication();

    /// Overwrites the whole data area with zeros.
    void clearData();

    /// Copies the next chunk of the message into the region, or out of it, and advances.
    void writePart(const char*& source, uint64_t length, uint64_t& remaining);
    void readPart(char*& target, uint64_t& remaining);

    int index() const { return m_index; }
    uint64_t chunkCapacity() const { return m_chunkCapacity; }
    uint32_t status() const { return m_header->status.load(); }
    void setStatus(uint32_t bits) { m_header->status.fetch_or(bits); }
    void clearStatus(uint32_t bits) { m_header->status.fetch_and(~bits); }
    ChannelHeader& header() { return *m_header; }

private:
    struct Transfer;

    timeout ownTimeout() const { return m_header->timeoutMilliseconds.load(); }
    void sendChunks(const char* data, uint64_t length, uint64_t& remaining, timeout limit);
    void receiveChunks(Transfer& transfer, timeout inside);
    Message receive(Transfer& transfer, timeout arrival, timeout inside);
    void takeUserError(class ReentrancyHelper& guard, timeout limit);
    void logFailure(const char* what, const void* buffer, uint64_t size, uint64_t remaining,
                    timeout limit) const;

    int m_index;
    ChannelHeader* m_header;
    char* m_data;
    uint64_t m_chunkCapacity;
    uint64_t m_receiveLimit = kNoReceiveLimit;
};

static_assert(sizeof(Channel::ChannelHeader) == 48);
static_assert(offsetof(Channel::ChannelHeader, status) == 4);
static_assert(offsetof(Channel::ChannelHeader, sending) == 8);
static_assert(offsetof(Channel::ChannelHeader, receiving) == 9);
static_assert(offsetof(Channel::ChannelHeader, messageLength) == 16);
static_assert(offsetof(Channel::ChannelHeader, timeoutMilliseconds) == 24);
static_assert(offsetof(Channel::ChannelHeader, lastSeconds) == 32);
static_assert(offsetof(Channel::ChannelHeader, lastMicroseconds) == 40);

}  // namespace ipc
