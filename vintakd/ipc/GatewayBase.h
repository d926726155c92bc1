#pragma once

#include <sys/time.h>

#include <atomic>
#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vintakd/ipc/Channel.h"

/// What a slot of the channel table is doing.
enum class ChannelState : uint32_t { free = 0, connected = 1, purging = 2 };

/// First bytes of the gateway segment.
struct GatewayHeader {
    uint64_t channelCount;
    uint64_t channelSize;  ///< bytes of one channel region
    ipc::SpinLockByte spinLock;
    ipc::LockOwner lockOwner;  ///< of the spin lock
};

/// One entry of the channel table. Guarded by the segment's spin lock.
struct ChannelEntry {
    ChannelState state;
    int32_t servantPid;
    int32_t clientPid;
    int32_t clientThreadId;
};

/// One entry of the channel table as it was at a moment, and when its channel was last used.
struct ChannelSnapshot : ChannelEntry {
    timeval lastCommunication;
};

/// Under the segment's spin lock; atomic for those who read without it.
inline void setState(ChannelEntry& entry, ChannelState state) {
    std::atomic_ref(entry.state).store(state);
}

/// "free", "connected", "purging" or "unknown".
const char* nameOf(ChannelState state);

static_assert(sizeof(GatewayHeader) == 32 && offsetof(GatewayHeader, spinLock) == 16 &&
              offsetof(GatewayHeader, lockOwner) == 24);
static_assert(sizeof(ChannelEntry) == 16);

/// The gateway segment: one POSIX shared-memory object with a header, the channel table and the channel
/// regions (see docs/protocol.md). The daemon creates it, clients attach. The segment's spin lock guards the
/// table; it is waited for with the gateway's time-out, and every operation here may throw TimeoutException.
class GatewayBase {
public:
    static const char* const s_szKnockKnock;  ///< "Knock, knock.", sent without its terminator
    static const char* const s_szWhosThere;   ///< "Who's there?", sent without its terminator

    /// Creates the segment: `smSize` bytes, `channelCount` regions of `channelSize` bytes. Where the name
    /// exists throws SharedMemoryAlreadyExistsException (also where the object cannot be made), or attaches,
    /// as `throwIfSMExists` says. Throws std::runtime_error when the machine has no memory for it, or when it
    /// cannot be made for another reason than its name, which would be attached to. `name` must
    /// outlive the object. With `keepLocked` the spin lock is held on return, and was from the first moment.
    GatewayBase(const char* name, uint64_t smSize, uint64_t channelSize, uint64_t channelCount,
                bool throwIfSMExists, bool keepLocked = false);
    /// Attaches; throws SharedMemoryDoesNotExistsException, of another account's segment
    /// SharedMemoryNotAllowedException, which is one.
    explicit GatewayBase(const char* name);
    /// Unmaps; the name stays.
    virtual ~GatewayBase();
    GatewayBase(const GatewayBase&) = delete;
    GatewayBase& operator=(const GatewayBase&) = delete;

    /// Removes the segment's name; mappings live on.
    static void remove(const char* name);
    void remove() { remove(m_name); }

    /// Bytes of header and table of `channelCount` channels.
    static uint64_t getFirstChannelOffset(uint64_t channelCount) { return 32 + 16 * channelCount; }

    /// The gateway's own time-out, in this object only; with `bSetChannels` also every channel's, for all
    /// processes.
    void setTimeout(ipc::timeout limit, bool bSetChannels);
    ipc::timeout getTimeout() const { return m_timeout; }

    /// Which locks were forced free.
    struct FreedLocks {
        size_t headers = 0;
        bool table = false;
    };
    /// Since when each lock has been found held, from look to look: the table's first, then those of the
    /// channels' headers. Nothing for one that was free at the last look.
    using LockTimes = std::vector<std::optional<ipc::ElapsedTimer>>;

    /// One look at the spin lock and at the lock of each channel's header; what has been held for `limit` is
    /// forced free, and the spin lock at once where a process holds it that is gone. A lock that is only busy
    /// is free for a moment again and again, so that looks have to be frequent while `times` has one that is
    /// held. A holder of the table that only waits for a channel header in dead hands gets that one freed
    /// first. Safe beside the rebuilding of channels.
    FreedLocks lookAtLocks(ipc::timeout limit, LockTimes& times);
    /// Looks until the spin lock is free; when it stays held for `limit`, forces it free and returns false.
    bool checkSpinLock(ipc::timeout limit);

    /// Marks channels that were silent longer than their time-out as purging and kills their servants.
    void purgeTimedoutChannels();

    /// The same at once with the channels of a client that is gone. For who knows that `clientPid` was a
    /// process of this space of pids; while it lives nothing is done.
    void purgeChannelsOf(int32_t clientPid);

    /// The whole channel table.
    std::vector<ChannelSnapshot> snapshot();
    uint64_t channelSize() const { return m_header->channelSize; }
    /// Prints the channel table to standard output.
    void printTable();
    /// Writes the segment's bytes to a file in the directory "TMP" (the system's temporary directory when not
    /// set), which the account alone may read. Throws std::runtime_error when it cannot be written.
    void dump();
    void dumpTo(const char* path);

    size_t channelCount() const { return m_channels.size(); }
    ipc::Channel& getChannel(size_t index) { return *m_channels[index]; }
    const char* name() const { return m_name; }

protected:
    /// The segment's spin lock for a scope.
    virtual ipc::SpinGuard lockTable() { return {m_header->spinLock, m_timeout, &m_header->lockOwner}; }
    GatewayHeader& header() { return *m_header; }
    ChannelEntry& entry(size_t index) { return m_table[index]; }
    /// What purgeTimedoutChannels does, for a caller that holds the spin lock.
    void purgeSilentChannels();
    /// Makes region `index` new again: fresh locks, header and time-out, no data. The caller holds the spin
    /// lock.
    void rebuildChannel(size_t index);
    int segmentDescriptor() const { return m_object.get_mapping_handle().handle; }
    /// Sends SIGKILL to `pid` where it is one.
    static bool killServant(int32_t pid);

private:
    void createSegment(uint64_t smSize, uint64_t channelSize, uint64_t channelCount, bool keepLocked);
    void setupExistingSM();
    void locate();
    char* region(size_t index) const { return m_channelSpace + index * m_header->channelSize; }
    ipc::SpinLockByte& headerLock(size_t index) const {
        return ipc::Channel::headerOf(region(index)).spinLock;
    }
    bool headerLockIsFree(size_t index);
    bool tableLockComesFree(ipc::timeout limit);
    bool tableHolderIsGone() const;
    void purgeIfSilent(size_t index, int64_t now);
    void logLayout(uint64_t smSize) const;

    const char* m_name;
    boost::interprocess::shared_memory_object m_object;
    boost::interprocess::mapped_region m_region;
    char* m_base = nullptr;
    GatewayHeader* m_header = nullptr;
    ChannelEntry* m_table = nullptr;
    char* m_channelSpace = nullptr;
    std::vector<std::unique_ptr<ipc::Channel>> m_channels;
    /// Held while a channel is made new, and while another thread of this process is at the lock of a header.
    std::mutex m_rebuilding;
    ipc::timeout m_timeout = ipc::no_timeout;
};

/// The name under which the system knows the segment: "/" in front where it is missing.
std::string segmentObjectName(const char* name);
