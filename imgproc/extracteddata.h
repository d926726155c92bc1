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
/// from the process's CImageMemory.
class CExtractedData {
public:
    CExtractedData(CImageProcess* process, int kind) : m_process(process), m_kind(kind) {}

    /// Gives the buffer back to the process's memory.
    virtual ~CExtractedData();

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
    CImageProcess* m_process;
    char* m_data = nullptr;
    unsigned int m_size = 0;
    int m_kind;
};
