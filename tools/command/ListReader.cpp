#include "tools/command/ListReader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "tools/command/Interruption.h"

namespace {

constexpr size_t kBlock = size_t{1} << 16;
constexpr size_t kLongestName = 4096;

}  // namespace

ListReader::ListReader(const std::string& path, char separator)
    : m_path(path == "-" ? "standard input" : path),
      m_separator(separator),
      m_file(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      m_block(kBlock) {
    if (m_file < 0) throw std::runtime_error(m_path + ": " + std::strerror(errno));
}

ListReader::~ListReader() {
    if (m_file != STDIN_FILENO) close(m_file);
}

bool ListReader::isRepeatable(const std::string& path) {
    std::error_code ignored;
    return path != "-" && std::filesystem::is_regular_file(path, ignored);
}

bool ListReader::fill() {
    // The signal may come to another thread than the one that reads.
    constexpr int kLookUp = 200;
    for (;;) {
        if (Interruption::came()) return false;
        pollfd readable{.fd = m_file, .events = POLLIN, .revents = 0};
        const int ready = poll(&readable, 1, kLookUp);
        if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
        const ssize_t got = read(m_file, m_block.data(), m_block.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw std::runtime_error(m_path + ": " + std::strerror(errno));
        m_at = 0;
        m_end = static_cast<size_t>(got);
        return got > 0;
    }
}

bool ListReader::next(std::string& name) {
    name.clear();
    while (!Interruption::came()) {
        if (m_at == m_end && !fill()) return !name.empty() && !Interruption::came();
        const char* begin = m_block.data() + m_at;
        const auto* end = static_cast<const char*>(std::memchr(begin, m_separator, m_end - m_at));
        const size_t length = end ? static_cast<size_t>(end - begin) : m_end - m_at;
        // Read as one name it would be that of its first part, and the others would be lost.
        if (m_separator != '\0' && std::memchr(begin, '\0', length))
            throw std::runtime_error(m_path + ": a name has a NUL in it; -0 is for lists of such");
        name.append(begin, length);
        m_at += length + (end ? 1 : 0);
        if (name.size() > kLongestName)
            throw std::runtime_error(m_path + ": a name of more than " + std::to_string(kLongestName) +
                                     " bytes begins with " + name.substr(0, 60));
        if (end && !name.empty()) return true;
    }
    return false;
}
