#include "kelt4/bitkeltwriter.h"

#include <cstring>
#include <new>

#include "kelt4/keltcompressor.h"

namespace dvq::kelt4 {

void CBitLazyWriter::setSize(size_t bytes) {
    if (!hasBuffer() && !m_sizeFixed) m_requested = bytes;
}

void CBitLazyWriter::fixSize(size_t bytes) {
    setSize(bytes);
    m_sizeFixed = true;
}

void CBitLazyWriter::flushBuffer() {
    if (!hasBuffer()) {
        useBuffer(static_cast<uint64_t*>(allocateBlock(m_requested)), m_requested);
        if (m_requested > 0) return;
    }
    dropPendingBit();
    throw 3;
}

void CBitLazyWriter::releaseBuffer() {
    if (hasBuffer()) deleteBlock(bufferStart());
}

CBitKeltWriter::~CBitKeltWriter() {
    if (m_owns) releaseBuffer();
}

void* CBitKeltWriter::allocateBlock(size_t bytes) {
    auto* block = static_cast<unsigned char*>(m_compressor->allocBlock(bytes + KeltHeader::kSize));
    if (block == nullptr) throw std::bad_alloc();
    std::memcpy(block, m_compressor->header().data(), KeltHeader::kSize);
    return block + KeltHeader::kSize;
}

void CBitKeltWriter::deleteBlock(void* block) {
    m_compressor->freeBlock(static_cast<unsigned char*>(block) - KeltHeader::kSize);
}

unsigned char* CBitKeltWriter::block() const {
    if (!hasBuffer() || !m_owns) return nullptr;
    return reinterpret_cast<unsigned char*>(bufferStart()) - KeltHeader::kSize;
}

unsigned char* CBitKeltWriter::detach() {
    unsigned char* const result = block();
    m_owns = false;
    return result;
}

}  // namespace dvq::kelt4
