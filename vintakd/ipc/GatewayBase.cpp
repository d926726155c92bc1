#include "vintakd/ipc/GatewayBase.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <boost/interprocess/exceptions.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <stdexcept>

#include "hsutils/StandardFiles.h"
#include "hsutils/Utils.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/VintakLog.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/ipc/trace.h"

namespace bip = boost::interprocess;

#define TRACE_THIS(text) TRACE_OBJECT("     GatewayBase[", this, text)

const char* const GatewayBase::s_szKnockKnock = "Knock, knock.";
const char* const GatewayBase::s_szWhosThere = "Who's there?";

namespace {

constexpr uint64_t kSmallestChannel =
    sizeof(ipc::BareChannel::ControlBlock) + sizeof(ipc::Channel::ChannelHeader) + 1;

// Time for the holder of the table's lock to go on, once the header that it waited for is free.
constexpr ipc::timeout kHeaderWasAll{500};

/// Whether header, table and regions lie within `size` bytes.
bool layoutFits(uint64_t size, uint64_t channelSize, uint64_t channelCount) {
    if (channelCount == 0 || channelCount > size / sizeof(ChannelEntry) || channelSize < kSmallestChannel)
        return false;
    const uint64_t first = GatewayBase::getFirstChannelOffset(channelCount);
    return first <= size && (size - first) / channelSize >= channelCount;
}

std::string dumpFileName() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[80];
    snprintf(stamp, sizeof stamp, "%04d-%02d-%02d_%02d%02d%02d.%ld", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<long>(now.tv_usec));
    const char* directory = getenv("TMP");
    return std::string(directory ? directory : "/tmp") + "/vintakd_mem." + stamp + "." +
           std::to_string(getpid()) + "." + std::to_string(mygettid());
}

}  // namespace

const char* nameOf(ChannelState state) {
    switch (state) {
        case ChannelState::free:
            return "free";
        case ChannelState::connected:
            return "connected";
        case ChannelState::purging:
            return "purging";
    }
    return "unknown";
}

std::string segmentObjectName(const char* name) {
    std::string result(name[0] == '/' ? "" : "/");
    result += name;
    return result;
}

GatewayBase::GatewayBase(const char* name, uint64_t smSize, uint64_t channelSize, uint64_t channelCount,
                         bool throwIfSMExists, bool keepLocked)
    : m_name(name) {
    const StandardFiles standardFiles;  // what this process prints is not to go into the segment
    if (!layoutFits(smSize, channelSize, channelCount)) {
        throw std::invalid_argument("the gateway segment is too small for its channels");
    }
    try {
        createSegment(smSize, channelSize, channelCount, keepLocked);
    } catch (const bip::interprocess_exception& error) {
        TRACE_THIS("GatewayBase(): shared memory already exists");
        if (throwIfSMExists) throw SharedMemoryAlreadyExistsException();
        const int cause = error.get_native_error();
        if (cause != EEXIST)
            throw std::runtime_error(std::string("the segment \"") + m_name +
                                     "\" could not be made: " + std::strerror(cause));
        setupExistingSM();
        return;
    }
    logLayout(smSize);
}

GatewayBase::GatewayBase(const char* name) : m_name(name) {
    setupExistingSM();
}

GatewayBase::~GatewayBase() = default;

void GatewayBase::remove(const char* name) {
    shm_unlink(segmentObjectName(name).c_str());
}

void GatewayBase::createSegment(uint64_t smSize, uint64_t channelSize, uint64_t channelCount,
                                bool keepLocked) {
    const std::string objectName = segmentObjectName(m_name);
    m_object = bip::shared_memory_object(bip::create_only, objectName.c_str(), bip::read_write,
                                         bip::permissions(0644));
    m_object.truncate(static_cast<bip::offset_t>(smSize));
    // A sparse object would be accepted here and end in SIGBUS at the first touch of a page that is not to be
    // had.
    if (const int error = posix_fallocate(segmentDescriptor(), 0, static_cast<off_t>(smSize))) {
        remove(m_name);
        throw std::runtime_error("no memory for a segment of " + std::to_string(smSize) +
                                 " bytes: " + std::strerror(error));
    }
    try {
        m_region = bip::mapped_region(m_object, bip::read_write);
    } catch (const bip::interprocess_exception&) {
        remove(m_name);
        throw;
    }
    m_base = static_cast<char*>(m_region.get_address());
    m_header = reinterpret_cast<GatewayHeader*>(m_base);
    m_header->spinLock.store(keepLocked ? 1 : 0);
    std::memset(m_base + sizeof(GatewayHeader), 0, smSize - sizeof(GatewayHeader));
    m_header->channelSize = channelSize;
    m_header->channelCount = channelCount;
    locate();
    for (uint64_t i = 0; i < channelCount; ++i) {
        m_channels.push_back(
            std::make_unique<ipc::Channel>(region(i), channelSize, true, static_cast<int>(i)));
    }
}

void GatewayBase::locate() {
    const auto tableAddress =
        (reinterpret_cast<uintptr_t>(m_base) + sizeof(GatewayHeader) + 15) & ~uintptr_t{15};
    m_table = reinterpret_cast<ChannelEntry*>(tableAddress);
    m_channelSpace = reinterpret_cast<char*>(m_table + m_header->channelCount);
}

void GatewayBase::setupExistingSM() {
    const StandardFiles standardFiles;  // as above
    try {
        m_object =
            bip::shared_memory_object(bip::open_only, segmentObjectName(m_name).c_str(), bip::read_write);
        m_region = bip::mapped_region(m_object, bip::read_write);
    } catch (const bip::interprocess_exception& error) {
        TRACE_THIS("setupExistingSM(): throw SharedMemoryDoesNotExistsException");
        if (error.get_error_code() == bip::security_error) throw SharedMemoryNotAllowedException();
        throw SharedMemoryDoesNotExistsException();
    }
    m_base = static_cast<char*>(m_region.get_address());
    m_header = reinterpret_cast<GatewayHeader*>(m_base);
    const uint64_t size = m_region.get_size();
    const uint64_t count = size < sizeof(GatewayHeader) ? 0 : m_header->channelCount;
    const uint64_t channelSize = count == 0 ? 0 : m_header->channelSize;
    // An object that is still being created, or is none of ours, must not lead us out of its mapping.
    if (!layoutFits(size, channelSize, count)) {
        TRACE_THIS("setupExistingSM(): throw SharedMemoryDoesNotExistsException");
        throw SharedMemoryDoesNotExistsException();
    }
    locate();
    for (uint64_t i = 0; i < count; ++i) {
        m_channels.push_back(
            std::make_unique<ipc::Channel>(region(i), channelSize, false, static_cast<int>(i)));
    }
}

void GatewayBase::logLayout(uint64_t smSize) const {
    OFLogger logger = GetQXLogger();
    OFLOG_INFO(logger, "Shared Memory Details (Init)\n"
                           << "Shared Memory Size: " << smSize << "\n"
                           << "Address: " << static_cast<const void*>(m_base) << "\n"
                           << "Channel Table Space: " << static_cast<const void*>(m_table) << "\n"
                           << "First Channel: " << static_cast<const void*>(m_channelSpace));
    for (size_t i = 0; i < m_channels.size(); ++i) {
        OFLOG_INFO(logger, i << ". Channel: " << static_cast<const void*>(m_channels[i].get()));
    }
    const auto headerSize = static_cast<uint64_t>(m_channelSpace - m_base);
    const uint64_t channelSpaceSize = m_header->channelCount * m_header->channelSize;
    OFLOG_INFO(logger, "Gateway header size: " << headerSize << "\n"
                                               << "Channel Space size: " << channelSpaceSize << "\n"
                                               << "Gateway total size: " << headerSize + channelSpaceSize);
}

void GatewayBase::setTimeout(ipc::timeout limit, bool bSetChannels) {
    m_timeout = limit;
    if (!bSetChannels) return;
    for (const auto& channel : m_channels)
        channel->setTimeout(limit);
}

GatewayBase::FreedLocks GatewayBase::lookAtLocks(ipc::timeout limit, LockTimes& times) {
    times.resize(m_channels.size() + 1);
    // Whether a lock that is held has been so for too long.
    const auto isStuck = [limit](std::optional<ipc::ElapsedTimer>& since, bool isFree) {
        if (isFree) since.reset();
        if (!isFree && !since) since.emplace();
        return since && since->reached(limit);
    };
    FreedLocks freed;
    for (size_t i = 0; i < m_channels.size(); ++i) {
        if (!isStuck(times[i + 1], headerLockIsFree(i))) continue;
        TRACE_THIS("checkHeaderLocks(): resetting the lock of channel " << i);
        const std::lock_guard guard(m_rebuilding);
        ipc::release(headerLock(i));
        times[i + 1].reset();
        ++freed.headers;
    }
    const ipc::timeout wait = freed.headers > 0 ? kHeaderWasAll : ipc::timeout(0);
    const bool isFree = tableLockComesFree(wait);
    if (!isStuck(times[0], isFree) && (isFree || !tableHolderIsGone())) return freed;
    TRACE_THIS("checkSpinLock(): resetting spin lock");
    m_header->lockOwner.store(0);
    ipc::releaseAndWake(m_header->spinLock);
    times[0].reset();
    freed.table = true;
    return freed;
}

bool GatewayBase::checkSpinLock(ipc::timeout limit) {
    for (LockTimes times;; mymilisleep(1)) {
        if (lookAtLocks(limit, times).table) return false;
        if (!times[0]) return true;
    }
}

bool GatewayBase::tableLockComesFree(ipc::timeout limit) {
    try {
        const ipc::SpinGuard lock(m_header->spinLock, limit);
        return true;
    } catch (const TimeoutException&) {
        return false;
    }
}

// For a lock that was found held. Its holder takes its name away before it lets go, so that whoever is gone
// and stands there still died with the lock in its hand. Of a holder that does not say so nobody knows.
bool GatewayBase::tableHolderIsGone() const {
    const uint64_t owner = m_header->lockOwner.load();
    return ipc::ownerIsGone(owner) && m_header->lockOwner.load() == owner;
}

// One look, so that the owner of the pool never waits for a lock in dead hands to make its channel new.
bool GatewayBase::headerLockIsFree(size_t index) {
    const std::lock_guard guard(m_rebuilding);
    constexpr int kLooks = 1000;
    for (int i = 0; i < kLooks; ++i)
        if (headerLock(index).load() == 0) return true;
    return false;
}

void GatewayBase::rebuildChannel(size_t index) {
    const auto limit = m_timeout;
    const std::lock_guard guard(m_rebuilding);
    m_channels[index].reset();
    m_channels[index] =
        std::make_unique<ipc::Channel>(region(index), m_header->channelSize, true, static_cast<int>(index));
    m_channels[index]->clearData();
    m_channels[index]->setTimeout(limit);
}

bool GatewayBase::killServant(int32_t pid) {
    return pid > 0 && kill(pid, SIGKILL) == 0;
}

void GatewayBase::purgeTimedoutChannels() {
    const auto lock = lockTable();
    purgeSilentChannels();
}

void GatewayBase::purgeSilentChannels() {
    timeval now{};
    gettimeofday(&now, nullptr);
    for (size_t i = 0; i < m_channels.size(); ++i)
        purgeIfSilent(i, now.tv_sec);
}

void GatewayBase::purgeIfSilent(size_t index, int64_t now) {
    ipc::Channel& channel = *m_channels[index];
    ChannelEntry& slot = m_table[index];
    if (slot.state == ChannelState::free) return;
    const ipc::timeout limit = channel.getTimeout();
    if (limit == ipc::no_timeout) return;

    const int32_t pid = slot.servantPid;
    OFLogger logger = GetQXLogger();
    if (slot.state == ChannelState::purging) {
        OFLOG_INFO(logger, "Purging purged channel (" << static_cast<const void*>(&channel) << ") (" << index
                                                      << ") and servant: " << pid);
        TRACE_CHANNEL(index, "GatewayBase", this,
                      "purgeTimedoutChannels(): purging purged channel with servant (" << pid << ")");
    } else if (slot.state == ChannelState::connected) {
        const auto limitSeconds = static_cast<int64_t>(std::ceil(limit.milliseconds() / 1000.0));
        const int64_t last = channel.getLastCommunication().tv_sec;
        if (now - last <= limitSeconds) return;
        setState(slot, ChannelState::purging);
        OFLOG_INFO(logger, "Purging timedout channel ("
                               << static_cast<const void*>(&channel) << ") (" << index << ") and servant: "
                               << pid << ", because now (" << now << ") is greater than reserveTimeSec ("
                               << last << ") by at least timeout (" << limitSeconds
                               << "), and the channel's timeout is " << limit.milliseconds() << "ms");
        TRACE_CHANNEL(
            index, "GatewayBase", this,
            "purgeTimedoutChannels(): puring connected timedout channel with servant (" << pid << ")");
    } else {
        return;
    }
    if (!killServant(pid)) return;
    OFLOG_INFO(logger, "Kill signal sent (" << index << ") and servant: " << pid);
    TRACE_CHANNEL(index, "GatewayBase", this,
                  "purgeTimedoutChannels(): kill signal sent to servant (" << pid << ")");
}

void GatewayBase::purgeChannelsOf(int32_t clientPid) {
    const auto lock = lockTable();
    for (size_t i = 0; i < m_channels.size(); ++i) {
        ChannelEntry& slot = m_table[i];
        if (slot.state != ChannelState::connected || slot.clientPid != clientPid || processLives(clientPid))
            continue;
        setState(slot, ChannelState::purging);
        TRACE_CHANNEL(i, "GatewayBase", this,
                      "purgeChannelsOf(" << clientPid << "): purging, servant (" << slot.servantPid << ")");
        killServant(slot.servantPid);
    }
}

std::vector<ChannelSnapshot> GatewayBase::snapshot() {
    std::vector<ChannelSnapshot> table;
    const auto lock = lockTable();
    for (size_t i = 0; i < m_channels.size(); ++i)
        table.push_back({m_table[i], m_channels[i]->getLastCommunication()});
    return table;
}

void GatewayBase::printTable() {
    const std::vector<ChannelSnapshot> table = snapshot();
    std::cout << m_header->channelCount << " pieces of " << m_header->channelSize
              << " bytes sized channels.\n";
    for (size_t i = 0; i < table.size(); ++i) {
        const ChannelSnapshot& slot = table[i];
        std::cout << "  " << i << ": server(" << slot.servantPid << ") " << nameOf(slot.state);
        if (slot.state == ChannelState::connected) {
            const timeval& last = slot.lastCommunication;
            std::cout << " " << last.tv_sec << "." << last.tv_usec << " (client pid/tid: " << slot.clientPid
                      << "/" << slot.clientThreadId << ")";
        }
        std::cout << "\n";
    }
    std::cout.flush();
}

void GatewayBase::dump() {
    const std::string path = dumpFileName();
    printNow(std::cerr) << "Dump shared memory to " << path << std::endl;
    dumpTo(path.c_str());
}

void GatewayBase::dumpTo(const char* path) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const char* rest = m_base;
    size_t size = file < 0 ? 0 : m_region.get_size();
    int error = file < 0 ? errno : 0;
    while (size > 0 && error == 0) {
        const ssize_t written = write(file, rest, size);
        if (written < 0 && errno != EINTR) error = errno;
        if (written > 0) {
            rest += written;
            size -= static_cast<size_t>(written);
        }
    }
    if (file >= 0 && close(file) != 0 && error == 0) error = errno;
    if (error != 0) throw std::runtime_error(std::string(path) + ": " + std::strerror(error));
}
