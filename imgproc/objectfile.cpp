#include "imgproc/objectfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

ObjectFile::ObjectFile(const std::string& path) : m_file(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (m_file < 0 || fstat(m_file, &status) != 0)
        m_error = errno;
    else
        m_size = static_cast<uint64_t>(status.st_size);
}

ObjectFile::~ObjectFile() {
    if (m_file >= 0) close(m_file);
}

ssize_t ObjectFile::readAt(uint64_t offset, std::span<uint8_t> room) {
    if (offset >= m_size || room.empty()) return 0;
    room = room.first(std::min<uint64_t>(room.size(), m_size - offset));
    Part& part = offset < Part::kBytes ? m_head : m_place;
    if (!part.holds(offset)) {
        if (room.size() >= Part::kBytes / 2 && &part != &m_head) return readFile(offset, room);
        if (!fill(part, &part == &m_head ? 0 : offset)) return -1;
        if (!part.holds(offset)) return 0;
    }
    const auto at = static_cast<size_t>(offset - part.offset);
    const size_t count = std::min(room.size(), part.count - at);
    std::memcpy(room.data(), part.bytes.get() + at, count);
    return static_cast<ssize_t>(count);
}

/// False when the file cannot be read.
bool ObjectFile::fill(Part& part, uint64_t offset) {
    if (!part.bytes) part.bytes = std::make_unique_for_overwrite<uint8_t[]>(Part::kBytes);
    part.offset = offset;
    part.count = 0;
    const ssize_t got = readFile(offset, {part.bytes.get(), Part::kBytes});
    part.count = static_cast<size_t>(std::max<ssize_t>(got, 0));
    return got >= 0;
}

ssize_t ObjectFile::readFile(uint64_t offset, std::span<uint8_t> room) const {
    ssize_t got = 0;
    do {
        got = pread(m_file, room.data(), room.size(), static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    return got;
}
