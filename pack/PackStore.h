#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace pack {

/// A file that only grows, written in large pieces. Every failure throws PackError with the path and the
/// system's reason.
class PackStore {
public:
    /// `named`: it keeps its name; otherwise it goes with the object, whatever becomes of the process.
    PackStore(std::string path, bool named);
    ~PackStore();
    PackStore(const PackStore&) = delete;
    PackStore& operator=(const PackStore&) = delete;

    void append(std::span<const uint8_t> bytes);
    /// Bytes that were appended.
    uint64_t size() const { return m_size; }
    /// Everything that was appended, to another one.
    void copyTo(PackStore& other);
    /// The `size` bytes of the file at `path` to the end of this one; the file may be gone after that.
    void takeOver(const std::string& path, uint64_t size);
    /// Overwrites the first bytes of what was appended.
    void writeFirst(std::span<const uint8_t> bytes);
    /// Writes what is left and waits until all of it is on the disk.
    void sync();
    /// Writes what is left and closes; `durable`: the same.
    void close(bool durable);
    /// Whether the file still bears its name.
    bool bearsItsName() const;
    const std::string& path() const { return m_path; }

private:
    void flush();
    void copyFrom(int file, const std::string& path, uint64_t size);
    void writeOut(std::span<const uint8_t> bytes);
    [[noreturn]] void fail(int error) const;

    std::string m_path;
    int m_file = -1;
    uint64_t m_size = 0;
    std::unique_ptr<uint8_t[]> m_buffer;
    size_t m_filled = 0;
};

/// Removes a regular file; no device, no link's target.
void removeFile(const std::string& path);

}  // namespace pack
