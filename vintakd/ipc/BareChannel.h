#pragma once

#include <cstddef>
#include <cstdint>

#include "vintakd/ipc/barrier.h"
#include "vintakd/ipc/timeout.h"

namespace ipc {

/// The synchronisation objects at the start of a channel region (128 bytes, at a multiple of 16) and the
/// payload that follows them. Holds pointers into the caller's mapping, which must outlive it. For exactly
/// two parties.
class BareChannel {
public:
    struct ControlBlock {
        ipc::barrier barrier;
        SpinBarrier spinBarrier;
        std::atomic<uint32_t> sleepers;  ///< in spinBarrier
    };

    /// `size` bytes at `memory`; with `init` the synchronisation objects are created (and destroyed with
    /// this object), else they are taken as they are. Throws boost::interprocess::interprocess_exception.
    BareChannel(void* memory, uint64_t size, bool init);
    ~BareChannel();
    BareChannel(const BareChannel&) = delete;
    BareChannel& operator=(const BareChannel&) = delete;

    char* getPayloadPointer() const { return m_payload; }
    uint64_t getPayloadSize() const { return m_payloadSize; }

    /// One crossing of the blocking barrier; throws TimeoutException.
    void sync(timeout limit);
    /// The same with different limits for the other party's arrival and for its departure.
    void sync(timeout arrival, timeout departure);
    /// One crossing of the spinning barrier; throws TimeoutException.
    void sync_fast(timeout limit) { m_control->spinBarrier.sync(limit, &m_control->sleepers); }

    /// Leaves the synchronisation objects to whoever uses the region next: this object will not destroy them.
    void disown() { m_bInit = false; }
    /// Whether this object initialised the region and destroys its synchronisation objects.
    bool owns() const { return m_bInit; }

    /// Where the payload of the region at `memory` begins.
    static char* payloadOf(void* memory);

protected:
    ControlBlock* control() const { return m_control; }

private:
    ControlBlock* m_control;
    char* m_payload;
    uint64_t m_payloadSize;
    bool m_bInit;
};

static_assert(sizeof(barrier) == 112);
static_assert(sizeof(BareChannel::ControlBlock) == 128);
static_assert(offsetof(BareChannel::ControlBlock, spinBarrier) == 112);

}  // namespace ipc
