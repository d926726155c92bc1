#include "pack/PackStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "pack/PackError.h"
#include "pack/SharedFile.h"

namespace pack {
namespace {

constexpr size_t kBufferSize = size_t{1} << 16;  // up to eight of them in a conversion
constexpr mode_t kMode = 0666;                   // the mask of the process takes from it

/// A descriptor that is closed whatever happens.
struct Closing {
    int file;
    ~Closing() { close(file); }
};

/// An empty file; -1 with errno where there is none. What has its name and is no file holds nobody up.
int openNew(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int file = open(path.c_str(), kFlags, kMode);
    struct stat status {};
    if (file < 0 || (fstat(file, &status) == 0 && S_ISREG(status.st_mode))) return file;
    close(file);
    throw PackError(path + " cannot be written (it is no regular file)");
}

}  // namespace

PackStore::PackStore(std::string path, bool named)
    : m_path(std::move(path)), m_buffer(std::make_unique_for_overwrite<uint8_t[]>(kBufferSize)) {
    m_file = openNew(m_path);
    if (m_file < 0) fail(errno);
    if (!named) unlink(m_path.c_str());
}

PackStore::~PackStore() {
    if (m_file >= 0) ::close(m_file);
}

void PackStore::append(std::span<const uint8_t> bytes) {
    if (bytes.size() > kBufferSize - m_filled) flush();
    if (bytes.size() > kBufferSize) {
        writeOut(bytes);
    } else if (!bytes.empty()) {
        std::memcpy(m_buffer.get() + m_filled, bytes.data(), bytes.size());
        m_filled += bytes.size();
    }
    m_size += bytes.size();
}

void PackStore::copyTo(PackStore& other) {
    flush();
    uint64_t at = 0;
    while (at < m_size) {
        const ssize_t count = pread(m_file, m_buffer.get(), kBufferSize, static_cast<off_t>(at));
        if (count <= 0) fail(count < 0 ? errno : EIO);
        other.append({m_buffer.get(), static_cast<size_t>(count)});
        at += static_cast<uint64_t>(count);
    }
}

// The first one to come is not even copied. Ours makes room for it first: where a file takes another one's
// name, ext4 writes it out to the disk at once.
void PackStore::takeOver(const std::string& path, uint64_t size) {
    flush();
    leaveShared();
    if (m_size == 0) {
        unlink(m_path.c_str());
        if (rename(path.c_str(), m_path.c_str()) != 0) fail(errno);
        ::close(std::exchange(m_file, -1));
        m_file = open(m_path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (m_file < 0 || lseek(m_file, 0, SEEK_END) != static_cast<off_t>(size))
            fail(m_file < 0 ? errno : EIO);
    } else {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (file < 0) throw PackError(path + " cannot be opened (" + std::strerror(errno) + ")");
        const Closing closing{file};
        copyFrom(file, path, size);
    }
    m_size += size;
}

void PackStore::takeOver(const SharedFile& shared, const std::string& path, uint64_t offset, uint64_t size) {
    if (size > shared.size() || offset > shared.size() - size)
        throw PackError(path + " has " + std::to_string(shared.size()) + " bytes, a part of it ends at " +
                        std::to_string(offset + size));
    flush();
    if (m_size == 0 && offset == 0) {
        unlink(m_path.c_str());
        if (rename(path.c_str(), m_path.c_str()) != 0) fail(errno);
        ::close(std::exchange(m_file, shared.share()));
        if (m_file < 0) fail(errno);
        m_identity = shared.identity();
    } else if (m_identity != shared.identity() || offset != m_size) {
        leaveShared();
        if (lseek(shared.file(), static_cast<off_t>(offset), SEEK_SET) < 0) fail(errno);
        copyFrom(shared.file(), path, size);
    }
    m_size += size;
    seek(m_size);
}

void PackStore::leaveShared() {
    if (std::exchange(m_identity, 0) == 0) return;
    unlink(m_path.c_str());
    moveOut();
}

void PackStore::moveInto(SharedFile& shared, uint64_t offset) {
    moveTo(shared.release(), offset);
    unlink(m_path.c_str());
}

void PackStore::moveOut() {
    const int file = openNew(m_path);
    if (file < 0) fail(errno);
    moveTo(file, 0);
}

void PackStore::moveTo(int file, uint64_t begin) {
    flush();
    const Closing before{std::exchange(m_file, file)};
    if (lseek(before.file, static_cast<off_t>(std::exchange(m_begin, begin)), SEEK_SET) < 0) fail(errno);
    seek(begin);
    copyFrom(before.file, m_path, m_size);
}

void PackStore::seek(uint64_t offset) {
    if (lseek(m_file, static_cast<off_t>(offset), SEEK_SET) < 0) fail(errno);
}

void PackStore::copyFrom(int file, const std::string& path, uint64_t size) {
    while (size > 0) {
        ssize_t count = copy_file_range(file, nullptr, m_file, nullptr, size, 0);
        if (count < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
            count = read(file, m_buffer.get(), std::min<uint64_t>(size, kBufferSize));
            if (count > 0) writeOut({m_buffer.get(), static_cast<size_t>(count)});
        }
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(errno);
        if (count == 0) throw PackError(path + " ends before it should");
        size -= static_cast<uint64_t>(count);
    }
}

void PackStore::writeFirst(std::span<const uint8_t> bytes) {
    flush();
    if (pwrite(m_file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) fail(errno);
}

void PackStore::sync() {
    flush();
    if (fdatasync(m_file) != 0) fail(errno);
}

void PackStore::close(bool durable) {
    flush();
    if (m_identity != 0 && ftruncate(m_file, static_cast<off_t>(m_size)) != 0) fail(errno);
    if (durable) sync();
    if (::close(std::exchange(m_file, -1)) != 0) fail(errno);
}

bool PackStore::bearsItsName() const {
    struct stat ours {};
    struct stat named {};
    return fstat(m_file, &ours) == 0 && lstat(m_path.c_str(), &named) == 0 && ours.st_dev == named.st_dev &&
           ours.st_ino == named.st_ino;
}

void PackStore::flush() {
    writeOut({m_buffer.get(), std::exchange(m_filled, 0)});
}

void PackStore::writeOut(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(m_file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) fail(count < 0 ? errno : EIO);
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
}

void PackStore::fail(int error) const {
    throw PackError(m_path + " cannot be written (" + std::strerror(error) + ")");
}

void removeFile(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) unlink(path.c_str());
}

}  // namespace pack
