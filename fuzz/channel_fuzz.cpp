#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

#include "fuzz/inputbytes.h"
#include "fuzz/require.h"
#include "vintakd/ipc/Channel.h"
#include "vintakd/ipc/ipcexceptions.h"

/// The channel's door: a peer that may write whatever it likes into the shared header while a message passes,
/// or stop at any step. The receiver gets no more than it wants to hold, and never waits past its time-out.
///
///     length   uint32, of the message
///     steps    before each crossing: 1 the peer is gone, 2 a byte offset and 8 bytes for the header, else on
namespace {

constexpr size_t kRegionSize = 1024;
constexpr uint64_t kReceiveLimit = 20000;
constexpr ipc::timeout kLimit{10};

class HostilePeer {
public:
    HostilePeer(ipc::Channel& channel, InputBytes script) : m_channel(channel), m_script(script) {
        m_length = m_script.number<uint32_t>() % (2 * kReceiveLimit);
    }

    /// Plays the sender until the script or a time-out ends it.
    void send() try {
        m_channel.header().sending = 1;
        uint64_t remaining = m_length;
        writeChunk(remaining);
        if (!step()) return;
        m_channel.sync(kLimit);
        if (!step()) return;
        m_channel.sync_fast(kLimit);
        while (remaining > 0) {
            writeChunk(remaining);
            if (!step()) return;
            m_channel.sync_fast(kLimit);
            if (!step()) return;
            m_channel.sync_fast(kLimit);
        }
        m_channel.header().sending = 0;
        if (step()) m_channel.sync_fast(kLimit);
    } catch (const TimeoutException&) {
    }

    uint64_t length() const { return m_length; }
    bool playedFair() const { return m_fair; }

private:
    void writeChunk(uint64_t& remaining) {
        const uint64_t count = std::min(m_channel.chunkCapacity(), remaining);
        m_channel.header().messageLength = remaining;
        std::memset(reinterpret_cast<char*>(&m_channel.header()) + sizeof(ipc::Channel::ChannelHeader), 'x',
                    count);
        remaining -= count;
    }

    bool step() {
        const uint8_t action = m_script.byte();
        if (action == 1) return m_fair = false;
        if (action != 2) return true;
        const size_t offset = m_script.byte() % sizeof(ipc::Channel::ChannelHeader);
        const auto value = m_script.bytes(std::min<size_t>(8, sizeof(ipc::Channel::ChannelHeader) - offset));
        // The lock of two of the fields is spun on without limit; who leaves it held is another matter.
        auto* header = reinterpret_cast<uint8_t*>(&m_channel.header());
        for (size_t i = 0; i < value.size(); ++i)
            if (offset + i >= 4) header[offset + i] = value[i];
        m_fair = false;
        return true;
    }

    ipc::Channel& m_channel;
    InputBytes m_script;
    uint64_t m_length;
    bool m_fair = true;
};

/// Nothing, or the message that was received.
std::optional<ipc::Message> receive(ipc::Channel& channel) {
    try {
        return channel.recv(kLimit, kLimit);
    } catch (const TimeoutException&) {
    } catch (const ipc::ChannelException&) {
    }
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (OFLog::configure(OFLogger::OFF_LOG_LEVEL), true);
    (void)quiet;
    const std::unique_ptr<char[]> region(new char[kRegionSize]());
    ipc::Channel servant(region.get(), kRegionSize, true, 0);
    ipc::Channel client(region.get(), kRegionSize, false, 0);
    servant.setReceiveLimit(kReceiveLimit);
    HostilePeer peer(client, {data, size});
    std::thread other([&peer] { peer.send(); });
    const std::optional<ipc::Message> message = receive(servant);
    other.join();
    if (!message) return 0;
    REQUIRE(message->getSize() <= kReceiveLimit);
    if (!peer.playedFair()) return 0;
    REQUIRE(message->getSize() == peer.length());
    REQUIRE(std::all_of(message->getPointer(), message->getPointer() + message->getSize(),
                        [](char c) { return c == 'x'; }));
    return 0;
}
