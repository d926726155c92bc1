#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace pack {

/// A file that several processes fill at once, each a range of its own. Whoever writes a range holds it by a
/// lock: what is left over of an earlier conversion of the same names is never in the same one. Whoever holds
/// the whole file may take it away.
class SharedFile {
public:
    ~SharedFile();
    SharedFile(const SharedFile&) = delete;
    SharedFile& operator=(const SharedFile&) = delete;

    /// `length` bytes from `offset` on of the file at `path`, which is made where there is none. Null where
    /// somebody holds some of them, and where this cannot be had: every file system lets a writer have a file
    /// of its own instead.
    static std::unique_ptr<SharedFile> range(const std::string& path, uint64_t offset, uint64_t length);
    /// The whole file, once nobody else holds any of it; null when there is none. Throws PackError when
    /// somebody holds it for long.
    static std::unique_ptr<SharedFile> whole(const std::string& path);

    int file() const { return m_file; }
    /// Tells it from every other file of its file system.
    uint64_t identity() const { return m_identity; }
    /// Bytes of the file when all of it was locked.
    uint64_t size() const { return m_size; }
    /// The descriptor, which the caller closes, and the lock with it.
    int release();
    /// Another descriptor of the file, which the caller closes; the lock lasts as long as either.
    int share() const;

private:
    explicit SharedFile(int file) : m_file(file) {}
    bool lock(uint64_t offset, uint64_t length) const;
    bool isAt(const std::string& path);

    int m_file;
    uint64_t m_identity = 0;
    uint64_t m_size = 0;
};

}  // namespace pack
