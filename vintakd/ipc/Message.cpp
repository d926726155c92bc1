#include "vintakd/ipc/Message.h"

#include <cstring>
#include <utility>

namespace ipc {

Message::Message(const Message& other) : m_size(other.m_size) {
    if (!other.m_buffer) return;
    m_buffer = new char[other.m_size];
    std::memcpy(m_buffer, other.m_buffer, other.m_size);
}

Message& Message::operator=(const Message& other) {
    if (this == &other) return *this;
    Message copy(other);
    swap(copy);
    return *this;
}

void Message::swap(Message& other) noexcept {
    std::swap(m_buffer, other.m_buffer);
    std::swap(m_size, other.m_size);
}

}  // namespace ipc
