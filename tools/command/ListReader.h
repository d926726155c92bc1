#pragma once

#include <string>
#include <vector>

/// The names in a list that somebody else writes: a file or standard input, a name a line or each with a NUL
/// behind it. Holds one name and one block of the list at a time.
class ListReader {
public:
    /// "-" is standard input. Throws std::runtime_error for a list that cannot be opened.
    ListReader(const std::string& path, char separator);
    ~ListReader();
    ListReader(const ListReader&) = delete;
    ListReader& operator=(const ListReader&) = delete;

    /// The next name that is not empty; false at the end, and once the program was interrupted. Throws
    /// std::runtime_error when the list cannot be read, or for what is no name: longer than any path, or with
    /// a NUL in it.
    bool next(std::string& name);
    /// Whether it can be read a second time, to be counted.
    static bool isRepeatable(const std::string& path);

private:
    bool fill();

    std::string m_path;
    char m_separator;
    int m_file;
    std::vector<char> m_block;
    size_t m_at = 0;
    size_t m_end = 0;
};
