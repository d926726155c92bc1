#include "imgproc/overlay.h"

#include <algorithm>
#include <cstdio>

int COverlay::initData(unsigned int size, OVERLAY_READ_MODE mode) {
    if (mode == OVERLAY_READ_CHOOSE) {
        if (m_bitsAllocated == 1 && m_bitPosition == 0)
            mode = OVERLAY_READ_DATA;
        else if (m_bitsAllocated < 2 || m_bitPosition == 0)
            return m_status = OVERLAY_NOT_APPLICABLE;
        else
            mode = OVERLAY_READ_PIXELS;
    }
    if (hasData()) return m_status = OVERLAY_DATA_PRESENT;
    if (size == 0) return m_status = OVERLAY_SIZE_ZERO;
    m_data.assign(size, 0);
    m_readMode = mode;
    m_pixelCount = uint32_t{m_rows} * m_columns;
    m_bitIndex = 0;
    m_bytesWritten = 0;
    return m_status = OVERLAY_IN_PROGRESS;
}

int COverlay::putData(const unsigned char* data, unsigned int size) {
    if (m_readMode != OVERLAY_READ_DATA || m_status != OVERLAY_IN_PROGRESS) return m_status;
    if (data == nullptr || !hasData()) return m_status = OVERLAY_NO_DATA;
    if (size > m_data.size() - m_bytesWritten) return m_status = OVERLAY_OVERFLOW;
    std::copy(data, data + size, m_data.begin() + m_bytesWritten);
    m_bytesWritten += size;
    return m_status;
}

int COverlay::finalizeData() {
    if (m_status != OVERLAY_IN_PROGRESS) return m_status;
    bool overflow = false;
    switch (m_readMode) {
        case OVERLAY_READ_DATA:
            overflow = m_bytesWritten > m_data.size();
            break;
        case OVERLAY_READ_PIXELS:
            overflow = uint64_t{m_bytesWritten} * 8 + m_bitIndex > m_pixelCount;
            break;
        default:
            return m_status = OVERLAY_NOT_APPLICABLE;
    }
    return m_status = overflow ? OVERLAY_OVERFLOW : OVERLAY_COMPLETE;
}

int COverlay::writeToFile(const char* path) const {
    if (!hasData()) return 1;
    std::FILE* file = std::fopen(path, "wb");
    if (file == nullptr) return 2;
    const bool written = std::fwrite(m_data.data(), 1, m_data.size(), file) == m_data.size();
    const bool closed = std::fclose(file) == 0;
    if (written && closed) return 0;
    (void)std::remove(path);
    return 3;
}

void COverlay::addBit(bool bit) {
    if (m_bytesWritten >= m_data.size()) {
        m_status = OVERLAY_OVERFLOW;
        return;
    }
    m_data[m_bytesWritten] |= static_cast<unsigned char>(unsigned{bit} << m_bitIndex);
    if (++m_bitIndex == 8) {
        m_bitIndex = 0;
        ++m_bytesWritten;
    }
}

template <typename Sample>
void COverlay::addBitsOf(const Sample* samples, size_t count) {
    if (m_bitPosition >= sizeof(Sample) * 8) {
        for (size_t i = 0; i < count && takesSampleBits(); ++i)
            addBit(false);
        return;
    }
    const unsigned position = m_bitPosition;
    const auto bitOf = [position](Sample sample) { return (unsigned{sample} >> position) & 1U; };
    size_t i = 0;
    for (; i < count && m_bitIndex != 0 && takesSampleBits(); ++i)
        addBit(bitOf(samples[i]));
    // From a byte boundary on whole bytes are gathered, eight samples at a time.
    for (; i + 8 <= count && m_bytesWritten < m_data.size() && m_bitIndex == 0; i += 8) {
        unsigned byte = 0;
        for (unsigned k = 0; k < 8; ++k)
            byte |= bitOf(samples[i + k]) << k;
        m_data[m_bytesWritten++] = static_cast<unsigned char>(byte);
    }
    for (; i < count && takesSampleBits(); ++i)
        addBit(bitOf(samples[i]));
}

void COverlay::addSampleBits(const uint16_t* samples, size_t count) {
    if (takesSampleBits()) addBitsOf(samples, count);
}

void COverlay::addSampleBits(const uint8_t* samples, size_t count) {
    if (takesSampleBits()) addBitsOf(samples, count);
}

int COverlayArray::createNewOverlay() {
    if (m_used == kSlotCount) return -1;
    m_slots[m_used] = std::make_unique<COverlay>(std::to_string(m_used));
    return m_used++;
}
