#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

/// Puts objects into a spool: under a temporary name, then by one rename, so that whoever looks finds a whole
/// file or none. Usable from several threads.
class SpoolWriter {
public:
    /// `folder`: where to. What an earlier process left there under a temporary name is removed.
    SpoolWriter(std::string folder, bool sync);

    /// Writes `size` bytes as `name`, over another of that name. Throws std::runtime_error; nothing stays
    /// then.
    void write(const std::string& name, const void* bytes, size_t size);

private:
    std::string temporaryName();

    std::string m_folder;
    bool m_sync;
    std::atomic<uint64_t> m_count{0};
};
