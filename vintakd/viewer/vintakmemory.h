#pragma once

#include <cstdint>
#include <memory>

#include "imgproc/extracteddata.h"

/// Keeps one buffer for reuse, so that the frames of an object share their pixel memory. A second buffer that
/// is wanted while the first is in use comes from the heap and goes back to it.
class CVintakMemory : public CImageMemory {
public:
    char* allocate(unsigned int size, int frame) override;
    void release(char* buffer, unsigned int size, int frame) override;

    /// Keeps the buffer as it is: what a frame does not need any more, the next one will.
    char* chunk(char* buffer, unsigned int oldSize, unsigned int newSize, int frame) override;

private:
    std::unique_ptr<char[]> m_buffer;
    uint32_t m_size = 0;  ///< bytes of m_buffer
    bool m_inUse = false;
};
