#include "vintakd/viewer/vintakmemory.h"

#include <new>

char* CVintakMemory::allocate(unsigned int size, int) {
    if (m_buffer && m_inUse) return new (std::nothrow) char[size];
    if (!m_buffer || m_size < size) {
        m_buffer.reset();  // first give back, then take: never both at a time
        m_buffer.reset(new (std::nothrow) char[size]);
        m_size = size;
    }
    m_inUse = m_buffer != nullptr;
    return m_buffer.get();
}

void CVintakMemory::release(char* buffer, unsigned int, int) {
    if (buffer && buffer == m_buffer.get())
        m_inUse = false;
    else
        delete[] buffer;
}

char* CVintakMemory::chunk(char* buffer, unsigned int, unsigned int, int) {
    return buffer;
}
