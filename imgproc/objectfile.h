#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

/// The file of an object, opened once for all who read it: the scan, the parser, and whoever reads values
/// that stay in the file. All of them see one and the same file, even where another takes its name meanwhile.
/// Bytes are read at an offset, so that readers do not move each other; one thread uses an object. The
/// beginning of the file and the place that was read last are kept: scan and parser go over the same small
/// elements.
class ObjectFile {
public:
    explicit ObjectFile(const std::string& path);
    ~ObjectFile();
    ObjectFile(const ObjectFile&) = delete;
    ObjectFile& operator=(const ObjectFile&) = delete;

    /// Why the file could not be opened, as errno says it; 0 when it could.
    int error() const { return m_error; }

    /// Bytes of the file when it was opened; nothing is read behind them.
    uint64_t size() const { return m_size; }

    /// Puts bytes from `offset` on into `room`, as many as are at hand, and returns their number; 0 where the
    /// file ends, -1 (with errno) where it cannot be read.
    ssize_t readAt(uint64_t offset, std::span<uint8_t> room);

private:
    /// Bytes of the file that were read ahead.
    struct Part {
        static constexpr size_t kBytes = size_t{16} << 10;
        std::unique_ptr<uint8_t[]> bytes;
        uint64_t offset = 0;
        size_t count = 0;

        bool holds(uint64_t at) const { return at >= offset && at - offset < count; }
    };

    bool fill(Part& part, uint64_t offset);
    ssize_t readFile(uint64_t offset, std::span<uint8_t> room) const;

    int m_file;
    int m_error = 0;
    uint64_t m_size = 0;
    Part m_head;
    Part m_place;
};
