#pragma once

#include <string>
#include <vector>

/// What happens to names in one folder, as the kernel tells it.
class IncomingWatch {
public:
    enum class Event {
        movedIn,   ///< a file got this name, whole
        created,   ///< it was made; by a writer who has it open, or as a link
        written,   ///< it is being written on
        closed,    ///< whoever wrote it has closed it
        gone,      ///< it lost this name
        overflow,  ///< there were too many events: the name is empty, anything may have happened
    };
    struct Entry {
        Event event;
        std::string name;
    };

    /// Begins to watch. Throws std::runtime_error.
    explicit IncomingWatch(const std::string& folder);
    ~IncomingWatch();
    IncomingWatch(const IncomingWatch&) = delete;
    IncomingWatch& operator=(const IncomingWatch&) = delete;

    /// To be waited on for reading.
    int descriptor() const { return m_descriptor; }
    /// Takes what has happened, a bounded piece at a time; empty when that is all.
    std::vector<Entry> take() const;

private:
    int m_descriptor;
};
