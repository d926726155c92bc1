#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace pack {

class SharedFile;

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
    /// The same for `size` bytes from `offset` on of a shared file, which is locked as a whole. Those at its
    /// beginning bring the file with them, if they are the first to come: its name `path` is this one's then.
    /// Those that lie in it where this one ends are in their place already.
    void takeOver(const SharedFile& shared, const std::string& path, uint64_t offset, uint64_t size);
    /// Whether it is a shared file that others may still have to be taken from.
    bool isShared() const { return m_identity != 0; }
    /// Moves what was appended into `shared`, where it begins at `offset`, and goes on there; the file of its
    /// own has no name any more.
    void moveInto(SharedFile& shared, uint64_t offset);
    /// Moves all of it into a file of its own again.
    void moveOut();
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
    void leaveShared();
    void moveTo(int file, uint64_t begin);
    void seek(uint64_t offset);
    void copyFrom(int file, const std::string& path, uint64_t size);
    void writeOut(std::span<const uint8_t> bytes);
    [[noreturn]] void fail(int error) const;

    std::string m_path;
    int m_file = -1;
    uint64_t m_begin = 0;  ///< in the file
    uint64_t m_size = 0;
    uint64_t m_identity = 0;  ///< of the shared file that this one was, and that may be longer; 0 for none
    std::unique_ptr<uint8_t[]> m_buffer;
    size_t m_filled = 0;
};

/// Removes a regular file; no device, no link's target.
void removeFile(const std::string& path);

}  // namespace pack
