#include "vintakd/ipc/Channel.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <sstream>

#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ReentrancyHelper.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/trace.h"

#define TRACE_THIS(text) TRACE_CHANNEL(m_index, "Channel", this, text)

namespace ipc {

namespace {

/// The header's own lock for a scope. It is held for a few instructions only; when it stays held, its holder
/// died there. Each field is atomic by itself, so that going on without the lock does less harm than waiting
/// for the daemon to free it, perhaps with the table's lock in hand.
class HeaderLock {
public:
    explicit HeaderLock(Channel::ChannelHeader& header) : m_lock(header.spinLock) {
        constexpr timeout kHolderDied{1000};
        try {
            acquire(m_lock, kHolderDied);
            m_held = true;
        } catch (const TimeoutException&) {
        }
    }
    ~HeaderLock() {
        if (m_held) release(m_lock);
    }
    HeaderLock(const HeaderLock&) = delete;
    HeaderLock& operator=(const HeaderLock&) = delete;

private:
    SpinLockByte& m_lock;
    bool m_held = false;
};

}  // namespace

/// What one recv has done so far; read by its error lines.
struct Channel::Transfer {
    std::unique_ptr<char[]> buffer;
    uint64_t size = 0;
    uint64_t remaining = 0;
};

Channel::Channel(void* memory, uint64_t size, bool init, int index)
    : BareChannel(memory, size, init),
      m_index(index),
      m_header(init ? new (getPayloadPointer()) ChannelHeader : &headerOf(memory)),
      m_data(getPayloadPointer() + sizeof(ChannelHeader)),
      m_chunkCapacity(getPayloadSize() - sizeof(ChannelHeader)) {
    if (init) TRACE_OBJECT("     ChannelHeader[", m_header, "ChannelHeader()");
    TRACE_THIS("Channel("
               << "shMemory:" << memory << ", cbMemory:" << size << ", bInit:" << init << ", nIndex:" << index
               << ")");
}

Channel::ChannelHeader& Channel::headerOf(void* memory) {
    return *reinterpret_cast<ChannelHeader*>(payloadOf(memory));
}

Channel::~Channel() {
    TRACE_THIS("~Channel()");
    if (owns()) TRACE_OBJECT("     ChannelHeader[", m_header, "~ChannelHeader()");
}

void Channel::send(const void* data, uint64_t length) {
    send(data, length, ownTimeout());
}

void Channel::send(const void* data, uint64_t length, timeout limit) {
    TRACE_THIS("send("
               << "messageLength:" << length << ", timeout:" << limit.milliseconds() << ")");
    uint64_t remaining = length;
    try {
        sendChunks(static_cast<const char*>(data), length, remaining, limit);
    } catch (const CommunicationMismatchException&) {
        TRACE_THIS("send(): CommunicationMismatchException caught, rethrowing");
        logFailure("Channel::send() :: CommunicationMismatchException caught (", data, length, remaining,
                   limit);
        throw;
    }
    TRACE_THIS("send(): returns");
}

void Channel::sendChunks(const char* data, uint64_t length, uint64_t& remaining, timeout limit) {
    ReentrancyHelper guard(*this, ReentrancyHelper::Direction::sending, limit);
    writePart(data, length, remaining);
    sync(limit);
    guard.checkError();
    sync_fast(limit);
    while (remaining > 0) {
        writePart(data, remaining, remaining);
        sync_fast(limit);
        sync_fast(limit);
    }
    guard.end();
    updateLastCommunication();
    sync_fast(limit);
}

void Channel::send_error() {
    send_error(ownTimeout());
}

void Channel::send_error(timeout limit) {
    try {
        ReentrancyHelper guard(*this, ReentrancyHelper::Direction::sending, limit);
        setStatus(kStatusUserError);
        TRACE_THIS("send_error(): user error signaled");
        try {
            sync(limit);
        } catch (const TimeoutException&) {
            clearStatus(kStatusUserError);
            throw;
        }
        if (status() & kStatusClash) {
            TRACE_THIS("send_error(): there is an error");
            clearStatus(kStatusClash | kStatusUserError);
            guard.end();
            sync_fast(limit);
            TRACE_THIS("send_error(): throw CommunicationMismatchException");
            throw CommunicationMismatchException();
        }
        guard.end();
        sync_fast(limit);
    } catch (const CommunicationMismatchException&) {
        OFLOG_ERROR(GetQXLogger(),
                    "Channel::send_error() :: CommunicationMismatchException caught (" << m_index << ")");
        throw;
    }
    TRACE_THIS("send_error(): returns");
}

Message Channel::recv() {
    return recv(ownTimeout());
}

Message Channel::recv(timeout limit) {
    return recv(limit, limit);
}

Message Channel::recv(timeout arrival, timeout inside) {
    TRACE_THIS("recv("
               << "timeout:" << arrival.milliseconds() << ")");
    Transfer transfer;
    try {
        Message message = receive(transfer, arrival, inside);
        TRACE_THIS("recv(): returns: messageLength:" << message.getSize());
        return message;
    } catch (const TimeoutException&) {
        TRACE_THIS("recv(): TimeoutException caught, rethrowing");
        logFailure("Channel::receive() :: Timeout Exception caught (set channel error) (",
                   transfer.buffer.get(), transfer.size, transfer.remaining, arrival);
        throw;
    } catch (const CommunicationMismatchException&) {
        TRACE_THIS("recv(): CommunicationMismatchException caught, rethrowing");
        logFailure("Channel::receive() :: CommunicationMismatchException caught (", transfer.buffer.get(),
                   transfer.size, transfer.remaining, arrival);
        throw;
    }
}

Message Channel::receive(Transfer& transfer, timeout arrival, timeout inside) {
    ReentrancyHelper guard(*this, ReentrancyHelper::Direction::receiving, inside);
    sync(arrival, inside);
    guard.checkError();
    takeUserError(guard, inside);

    transfer.size = transfer.remaining = m_header->messageLength;
    const bool tooLong = transfer.size > m_receiveLimit;
    if (!tooLong) transfer.buffer.reset(new (std::nothrow) char[transfer.size]);
    receiveChunks(transfer, inside);
    std::memset(m_data, 0, std::min(m_chunkCapacity, transfer.size));
    guard.end();
    sync_fast(inside);

    if (tooLong) throw MessageTooLongException();
    if (!transfer.buffer) throw std::bad_alloc();
    return {transfer.buffer.release(), transfer.size};
}

// Without a buffer the chunks are taken off the channel all the same: the sender must not be left waiting.
void Channel::receiveChunks(Transfer& transfer, timeout inside) {
    char* target = transfer.buffer.get();
    const auto take = [&] {
        if (target) {
            readPart(target, transfer.remaining);
        } else {
            transfer.remaining -= std::min(m_chunkCapacity, transfer.remaining);
        }
    };
    take();
    sync_fast(inside);
    while (transfer.remaining > 0) {
        sync_fast(inside);
        take();
        sync_fast(inside);
    }
}

void Channel::takeUserError(ReentrancyHelper& guard, timeout limit) {
    if ((status() & kStatusUserError) == 0) return;
    TRACE_THIS("recv(): there is a user error");
    clearStatus(kStatusUserError);
    guard.end();
    sync_fast(limit);
    OFLOG_ERROR(GetQXLogger(), "((Channel*)" << static_cast<const void*>(this)
                                             << "): throw UserException() from recv (" << m_index << ")");
    TRACE_THIS("recv(): throw UserException");
    throw UserException();
}

void Channel::setTimeout(timeout limit) {
    TRACE_THIS("setTimeout("
               << "timeout:" << limit.milliseconds() << ")");
    const HeaderLock lock(*m_header);
    m_header->timeoutMilliseconds = limit.milliseconds();
}

timeout Channel::getTimeout() {
    const HeaderLock lock(*m_header);
    return ownTimeout();
}

void Channel::updateLastCommunication() {
    timeval now{};
    gettimeofday(&now, nullptr);
    const HeaderLock lock(*m_header);
    m_header->lastSeconds = now.tv_sec;
    m_header->lastMicroseconds = now.tv_usec;
}

timeval Channel::getLastCommunication() {
    const HeaderLock lock(*m_header);
    timeval last{};
    last.tv_sec = m_header->lastSeconds;
    last.tv_usec = m_header->lastMicroseconds;
    return last;
}

void Channel::clearData() {
    std::memset(m_data, 0, m_chunkCapacity);
}

void Channel::writePart(const char*& source, uint64_t length, uint64_t& remaining) {
    const uint64_t count = std::min(m_chunkCapacity, length);
    m_header->messageLength = length;
    if (count > 0) std::memcpy(m_data, source, count);
    remaining -= count;
    source += count;
}

void Channel::readPart(char*& target, uint64_t& remaining) {
    const uint64_t count = std::min(m_chunkCapacity, remaining);
    std::memcpy(target, m_data, count);
    remaining -= count;
    target += count;
}

void Channel::logFailure(const char* what, const void* buffer, uint64_t size, uint64_t remaining,
                         timeout limit) const {
    OFLOG_ERROR(GetQXLogger(), what << m_index << ")\n"
                                    << "Buffer: " << buffer << "\n"
                                    << "Size: " << size << "\n"
                                    << "Remaining: " << remaining << "\n"
                                    << "Timeout: " << limit.milliseconds() << " millisec");
}

}  // namespace ipc
