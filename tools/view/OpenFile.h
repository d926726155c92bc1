#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace view {

/// A regular file, open for reading; closed with its last owner.
class OpenFile {
public:
    /// Nothing for what is no regular file, a symbolic link included: what the page gives away lies where it
    /// was said to lie.
    static std::shared_ptr<OpenFile> open(const std::string& path);

    OpenFile(int file, size_t size) : m_file(file), m_size(size) {}
    ~OpenFile();
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// In bytes, when it was opened.
    size_t size() const { return m_size; }

    /// Bytes from `offset` on into `piece`: how many there were; 0 at the end and when they cannot be read.
    size_t read(size_t offset, std::span<char> piece) const;

private:
    int m_file;
    size_t m_size;
};

}  // namespace view
