#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

/// A folder of this test alone, removed with the object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/vintakd_test_XXXXXX";
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
        m_path = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of `name` in it.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};
