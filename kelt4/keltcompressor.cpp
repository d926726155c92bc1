#include "kelt4/keltcompressor.h"

#include <cstdlib>

#include "kelt4/encoderfactory.h"

namespace dvq::kelt4 {

CKeltCompressor::CKeltCompressor(const void* pixels, int bytesPerPixel, int bitsUsed, int width, int height,
                                 const Kernel& kernel)
    : CKeltHeader(bytesPerPixel, bitsUsed, width, height),
      m_encoder(createEncoder(kernel, bytesPerPixel, width, height)),
      m_output(this) {
    if (!m_encoder) return;
    if (bytesPerPixel == 3) {
        m_encoder->copyAndConvertFrom(pixels, bytesPerPixel);
        m_encoder->transform();
    } else {
        m_encoder->transformFrom(pixels, bytesPerPixel);
    }
}

CKeltCompressor::~CKeltCompressor() = default;

int CKeltCompressor::compress(int rowLimit) {
    if (!m_encoder || (m_status != -1 && m_status != 8)) return m_status;
    m_status = 4;
    try {
        m_status = m_encoder->writeWavelet(m_output, rowLimit);
    } catch (int) {
        // The capacity is reached; what was written is a prefix of the stream and good to use.
    }
    return m_status;
}

void CKeltCompressor::stop() {
    if (m_encoder) m_encoder->stop();
}

void CKeltCompressor::kill() {
    if (m_encoder) m_encoder->kill();
}

void* CKeltCompressor::allocBlock(size_t size) {
    void* block = nullptr;
    return posix_memalign(&block, 8, size) == 0 ? block : nullptr;
}

void CKeltCompressor::freeBlock(void* block) {
    std::free(block);
}

size_t CKeltCompressor::payloadSize() const {
    if (payload() == nullptr) return 0;
    return static_cast<size_t>((m_output.getTotal() + 7) / 8) + kSize;
}

}  // namespace dvq::kelt4
