#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

/// A folder of this process alone below the system's temporary folder, which is best kept in memory (TMPDIR);
/// removed when the process ends as it should.
class MemoryFolder {
public:
    MemoryFolder();
    ~MemoryFolder();
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;

    /// The path of `name` in it.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    /// Creates or replaces a file; its path.
    std::string write(const std::string& name, std::span<const uint8_t> bytes) const;
    std::vector<uint8_t> read(const std::string& name) const;
    bool has(const std::string& name) const;
    /// The size in bytes of every file, by name.
    std::map<std::string, uint64_t> sizes() const;
    /// Removes every file.
    void empty() const;

private:
    std::string m_path;
};
