#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "tools/spool/Backlog.h"
#include "tools/spool/IncomingWatch.h"

/// One folder that objects arrive in, and the order in which they leave. A name counts as whole
///   - at once when a file was moved to it,
///   - when a file that was written in place was closed and then not written on for the settling time; one
///     that was linked there counts as closed,
///   - when nobody saw how it came (the feeder was not there yet, or the kernel's queue ran over) and it was
///   not touched
///     for `kUnseen` settling times.
/// Names that begin with a '.' or end in ".tmp" or ".part" are somebody's temporary ones and never looked at;
/// folders neither.
class IncomingFolder {
public:
    static constexpr int kUnseen = 5;

    /// Watches and reads the folder. Throws std::runtime_error.
    IncomingFolder(std::string path, std::chrono::duration<double> settle);

    int descriptor() const { return m_watch.descriptor(); }
    /// Takes note of what happened; reads the folder where that is needed.
    void update();
    /// The oldest name that is whole and that `mayGo` lets through; it stays in until taken().
    template <typename Filter>
    std::optional<Waiting> oldest(const Filter& mayGo) const;
    /// The name has left.
    void taken(const std::string& name);

    const std::string& path() const { return m_path; }
    /// How many wait: counted when the folder was read, and kept up since.
    size_t waiting() const { return m_count; }
    /// Whether something is there of which it is not known yet that it is whole.
    bool isUnsettled() const { return m_unseen || !m_open.empty(); }
    /// Since when the oldest waits.
    std::optional<timespec> oldestSince() const;

    static bool isTemporary(const std::string& name);

private:
    using Clock = std::chrono::steady_clock;

    void note(const IncomingWatch::Entry& entry);
    void created(const std::string& name);
    void open(const std::string& name, std::optional<Clock::time_point> closed);
    void arrived(const std::string& name);
    void settleMade();
    void settleClosed();
    void scan();

    std::string m_path;
    std::chrono::duration<double> m_settle;
    IncomingWatch m_watch;
    Backlog m_backlog;
    std::unordered_map<std::string, std::optional<Clock::time_point>>
        m_open;                              ///< being written; when it was closed
    std::unordered_set<std::string> m_made;  ///< of these, made a moment ago; nothing is known of them yet
    size_t m_count = 0;
    bool m_unseen = true;  ///< the folder must be read to know what is there
    Clock::time_point m_scannedAt;
};

template <typename Filter>
std::optional<Waiting> IncomingFolder::oldest(const Filter& mayGo) const {
    for (const Waiting& waiting : m_backlog.names())
        if (!m_open.contains(waiting.name) && mayGo(waiting.name)) return waiting;
    return std::nullopt;
}
