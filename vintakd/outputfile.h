#pragma once

#include <cstdio>
#include <memory>
#include <string>

class CImageProcess;

/// A file that is being written. Failures are reported to the process with the path and the system's reason,
/// so that the client learns of an unwritable folder or a full disk.
class OutputFile {
public:
    explicit OutputFile(CImageProcess& process) : m_process(process) {}
    ~OutputFile() { close(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Creates or truncates `path` and opens it for binary writing; false (and reported) when that fails.
    bool open(std::string path);

    /// Null while nothing is open.
    std::FILE* get() const { return m_file; }

    /// To be called after a write to a file that stays open for long: keeps the system's reason if the write
    /// failed.
    void noteError();

    /// Writes out what is buffered and closes; false (and reported) when any write to the file failed. True
    /// when nothing is open.
    bool close();

private:
    void report(const char* action, int error);

    CImageProcess& m_process;
    std::string m_path;
    std::FILE* m_file = nullptr;
    std::unique_ptr<char[]> m_buffer;
    int m_error = 0;  ///< errno of the first failed write that was noticed
};
