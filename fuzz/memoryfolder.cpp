#include "fuzz/memoryfolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/require.h"

MemoryFolder::MemoryFolder() : m_path((std::filesystem::temp_directory_path() / "fuzz-XXXXXX").string()) {
    REQUIRE(mkdtemp(m_path.data()) != nullptr, "%s", m_path.c_str());
}

MemoryFolder::~MemoryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string MemoryFolder::write(const std::string& name, std::span<const uint8_t> bytes) const {
    std::string path = *this / name;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    REQUIRE(file.good(), "%s", path.c_str());
    return path;
}

std::vector<uint8_t> MemoryFolder::read(const std::string& name) const {
    std::ifstream file(*this / name, std::ios::binary);
    REQUIRE(file.is_open(), "%s", name.c_str());
    return {std::istreambuf_iterator<char>(file), {}};
}

bool MemoryFolder::has(const std::string& name) const {
    struct stat status {};
    return stat((*this / name).c_str(), &status) == 0;
}

std::map<std::string, uint64_t> MemoryFolder::sizes() const {
    std::map<std::string, uint64_t> found;
    for (const auto& entry : std::filesystem::directory_iterator(m_path))
        found[entry.path().filename().string()] = entry.file_size();
    return found;
}

void MemoryFolder::empty() const {
    for (const auto& entry : std::filesystem::directory_iterator(m_path))
        std::filesystem::remove(entry.path());
}
