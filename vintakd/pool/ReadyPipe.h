#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

/// The pipe on which new servants say that they are ready. Every servant inherits both ends.
class ReadyPipe {
public:
    struct Report {
        uint32_t index;  ///< of the channel
        int32_t pid;
    };

    /// Throws std::runtime_error.
    ReadyPipe();
    ~ReadyPipe();
    ReadyPipe(const ReadyPipe&) = delete;
    ReadyPipe& operator=(const ReadyPipe&) = delete;

    /// Readable when a report waits.
    int file() const { return m_ends[0]; }
    /// The next report that waits; nothing when there is none.
    std::optional<Report> read() const;

    /// In a new servant: it never reads.
    void keepOnlyWriting();
    /// In a servant: this process is ready to serve channel `index`. It has nothing to say afterwards.
    void report(size_t index);

private:
    int m_ends[2] = {-1, -1};
};
