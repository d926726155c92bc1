#pragma once

#include <cstdio>
#include <memory>
#include <string>

class CImageProcess;

/// Closes a file that was written under `path`. 0 when all of it arrived; otherwise the first error
/// (`error` when that is one already, EIO when the system gave none), and the file is removed: whoever finds
/// it later would take it for a whole one. Only a regular file that still bears the name is removed, no
/// device and no link.
int closeOrRemove(std::FILE* file, const std::string& path, int error);

/// A file that is being written. Failures are logged with the path and the system's reason, and reported to
/// the process, so that the client learns of an unwritable folder or a full disk. A file that could not be
/// written completely is removed; an empty one that was never written to stays.
class OutputFile {
public:
    /// What the loss of a file that could be created means.
    enum class Loss {
        failsConversion,
        isLogged  ///< viewers do without the file; only the log tells of it
    };

    explicit OutputFile(CImageProcess& process, Loss loss = Loss::failsConversion)
        : m_process(process), m_loss(loss) {}
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

    /// Closes and removes the file if nothing was written to it, not even in vain.
    void dropEmpty();

    /// Writes out what is buffered and closes; false (and told as above, and the file removed) when any write
    /// to the file failed. True when nothing is open.
    bool close();

private:
    void report(const char* action, int error, Loss loss);

    CImageProcess& m_process;
    Loss m_loss;
    std::string m_path;
    std::FILE* m_file = nullptr;
    std::unique_ptr<char[]> m_buffer;
    int m_error = 0;  ///< errno of the first failed write that was noticed
};
