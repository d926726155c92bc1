#pragma once

#include <cstdio>
#include <memory>
#include <string>

class CImageProcess;

/// A file that is being written. Failures are logged with the path and the system's reason, and reported to
/// the process, so that the client learns of an unwritable folder or a full disk. A file that could not be
/// written completely is removed: a viewer takes a file that is there for a whole one.
class OutputFile {
public:
    /// What the loss of a file that had been opened means.
    enum class Loss {
        failsConversion,  ///< the process learns of it
        isLogged          ///< viewers do without the file; nobody but the log learns of it
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

    /// Writes out what is buffered and closes; false (and reported, and the file removed) when any write to
    /// the file failed. True when nothing is open.
    bool close();

    /// Closes and removes a file that did not come about for another reason than its writing, which is logged.
    void discard(const char* reason);

private:
    static std::string withReason(std::string text, int error);
    void closeAndRemove();

    CImageProcess& m_process;
    Loss m_loss;
    std::string m_path;
    std::FILE* m_file = nullptr;
    std::unique_ptr<char[]> m_buffer;
    int m_error = 0;  ///< errno of the first failed write that was noticed
};
