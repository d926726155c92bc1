#pragma once

#include <sys/mman.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

/// Values in memory that the processes forked afterwards share. They are never destroyed: a process that dies
/// leaves what it wrote to the others.
template <class T>
class SharedArray {
public:
    /// `what` names the values in the text of the std::runtime_error that it throws without memory.
    SharedArray(size_t count, const char* what) : m_count(count) {
        void* memory =
            mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::runtime_error(std::string("no memory for ") + what + ": " + std::strerror(errno));
        m_values = static_cast<T*>(memory);
        std::uninitialized_default_construct_n(m_values, count);
    }
    ~SharedArray() { munmap(m_values, m_count * sizeof(T)); }
    SharedArray(const SharedArray&) = delete;
    SharedArray& operator=(const SharedArray&) = delete;

    T& operator[](size_t index) { return m_values[index]; }
    const T& operator[](size_t index) const { return m_values[index]; }
    size_t size() const { return m_count; }

private:
    size_t m_count;
    T* m_values;
};
