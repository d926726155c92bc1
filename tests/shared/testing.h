#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint16_t>;

/// FNV-1a over bytes, to pin results that are too long to be written down; `before` continues another sum.
inline uint64_t checksum(std::span<const uint8_t> bytes, uint64_t before = 0xCBF29CE484222325) {
    for (const uint8_t byte : bytes)
        before = (before ^ byte) * 0x100000001B3;
    return before;
}

/// Bits as they are written, "10 1 ..." with spaces ignored, the first one the lowest of its byte.
inline Bytes packedBits(const std::string& bits) {
    Bytes bytes;
    size_t count = 0;
    for (const char bit : bits) {
        if (bit == ' ') continue;
        if (count % 8 == 0) bytes.push_back(0);
        if (bit == '1') bytes.back() = static_cast<uint8_t>(bytes.back() | 1 << count % 8);
        ++count;
    }
    return bytes;
}

inline Bytes join(Bytes head, const Bytes& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

/// Whether `part` occurs in `text`; shows both where a test expected otherwise.
inline testing::AssertionResult contains(const std::string& text, const std::string& part) {
    const bool found = text.find(part) != std::string::npos;
    return (found ? testing::AssertionSuccess() : testing::AssertionFailure())
           << "looked for \"" << part << "\" in \"" << text.substr(0, 10000) << '"';
}

/// Waits for something that has to come true; the limit only ends a failing test.
inline bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 3000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

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
