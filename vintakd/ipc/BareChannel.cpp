#include "vintakd/ipc/BareChannel.h"

#include "vintakd/ipc/trace.h"

namespace ipc {

namespace {

char* alignUp(void* memory) {
    return reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(memory) + 15) & ~uintptr_t{15});
}

}  // namespace

BareChannel::BareChannel(void* memory, uint64_t size, bool init)
    : m_control(reinterpret_cast<ControlBlock*>(alignUp(memory))),
      m_payload(payloadOf(memory)),
      m_payloadSize(static_cast<uint64_t>(static_cast<char*>(memory) + size - m_payload)),
      m_bInit(init) {
    TRACE_OBJECT("     BareChannel[", this,
                 "BareChannel("
                     << "shMemory:" << memory << ", cbMemory:" << size << ", bInit:" << init << ")");
    if (!init) return;
    m_control->barrier.init();
    m_control->spinBarrier.init();
    m_control->sleepers.store(0);
}

char* BareChannel::payloadOf(void* memory) {
    return alignUp(memory) + sizeof(ControlBlock);
}

BareChannel::~BareChannel() {
    TRACE_OBJECT("     BareChannel[", this, "~BareChannel()");
    if (m_bInit) m_control->barrier.destroy();
}

void BareChannel::sync(timeout limit) {
    sync(limit, limit);
}

void BareChannel::sync(timeout arrival, timeout departure) {
    m_control->barrier.phase1(arrival);
    m_control->barrier.phase2(departure);
}

}  // namespace ipc
