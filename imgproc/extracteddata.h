#pragma once

#include <cstdint>

class CImageProcess;

/// Allocates the sample and document buffers of extracted data. `kind` is the number that the data was
/// created with: the frame number of an image, 1 for a document.
class CImageMemory {
public:
    virtual ~CImageMemory() = default;

    /// A buffer of `size` bytes, not initialised; null when there is no memory.
    virtual char* allocate(unsigned int size, int kind) = 0;

    /// Takes back a buffer of allocate() or chunk().
    virtual void release(char* buffer, unsigned int size, int kind) = 0;

    /// Told that only the first `newSize` of `oldSize` bytes are still needed; returns the buffer to use from
    /// now on (the same one, or a smaller one with the same first bytes).
    virtual char* chunk(char* buffer, unsigned int oldSize, unsigned int newSize, int kind) = 0;
};

/// Something taken out of an object: an image, a document, content of our own. Owns one buffer that comes
/// from a CImageMemory.
class CExtractedData {
public:
    /// Borrows both for its whole life; `memory` may be null for data that has no buffer.
    CExtractedData(CImageProcess* process, CImageMemory* memory, int kind)
        : m_process(process), m_memory(memory), m_kind(kind) {}

    /// Gives the buffer back to the memory.
    virtual ~CExtractedData() {
        if (m_data != nullptr) m_memory->release(m_data, m_size, m_kind);
    }

    CExtractedData(const CExtractedData&) = delete;
    CExtractedData& operator=(const CExtractedData&) = delete;

    /// Prepares the data to be filled; false when it cannot be.
    virtual bool init() = 0;

    /// Completes the data; 0 is success.
    virtual int postProcess() = 0;

    CImageProcess* process() const { return m_process; }
    char* data() const { return m_data; }

    /// Bytes in data().
    unsigned int size() const { return m_size; }

    /// The number given to CImageMemory; for images the frame number, counted from 1.
    int kind() const { return m_kind; }

protected:
    CImageProcess* m_process;  ///< whose data this is; nothing here calls it
    CImageMemory* m_memory;
    char* m_data = nullptr;
    unsigned int m_size = 0;
    int m_kind;
};
