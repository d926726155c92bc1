#include "kelt4/bitchunkwriter.h"

#include <algorithm>

namespace dvq::kelt4 {

void CBitChunkWriter::flushBuffer() {
    m_completedBits += 64 * static_cast<uint64_t>(wholeWords());
    m_chunks.emplace_back(kChunkWords);
    useBuffer(m_chunks.back().words(), 8 * kChunkWords);
}

void CBitChunkWriter::writeBitsTo(CBitWriter* out, size_t maxBits) {
    storePartial();
    uint64_t left = maxBits == 0 ? getTotal() : std::min<uint64_t>(getTotal(), maxBits);
    for (auto& chunk : m_chunks) {
        const uint64_t bits = std::min<uint64_t>(left, 64 * static_cast<uint64_t>(chunk.count()));
        out->append(chunk.words(), bits);
        left -= bits;
    }
}

}  // namespace dvq::kelt4
