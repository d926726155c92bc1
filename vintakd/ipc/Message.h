#pragma once

#include <cstdint>

namespace ipc {

/// A received message; owns its buffer.
class Message {
public:
    Message() = default;
    /// Takes over `buffer`, which was made with array new.
    Message(char* buffer, uint64_t size) : m_buffer(buffer), m_size(size) {}
    Message(const Message& other);
    Message& operator=(const Message& other);
    Message(Message&& other) noexcept { swap(other); }
    Message& operator=(Message&& other) noexcept {
        swap(other);
        return *this;
    }
    ~Message() { delete[] m_buffer; }

    uint64_t getSize() const { return m_size; }
    const char* getPointer() const { return m_buffer; }

private:
    void swap(Message& other) noexcept;

    char* m_buffer = nullptr;
    uint64_t m_size = 0;
};

}  // namespace ipc
