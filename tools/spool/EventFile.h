#pragma once

#include <sys/types.h>

#include <string>

#include "tools/feeding/SpoolWork.h"

/// The file that says what became of each object, one JSON object a line, only ever appended to:
/// docs/feeding.md. Who moves it away (logrotate) gets a new one with the next line.
class EventFile {
public:
    explicit EventFile(std::string path) : m_path(std::move(path)) {}
    ~EventFile();
    EventFile(const EventFile&) = delete;
    EventFile& operator=(const EventFile&) = delete;

    /// Appends a line, whole or not at all. Throws std::runtime_error.
    void write(const SpoolObject& object, const WorkResult& result);
    /// Has what was written reach the disk. False with errno where it did not.
    bool sync();

private:
    void open();

    std::string m_path;
    int m_file = -1;
    ino_t m_inode = 0;
    bool m_unsynced = false;
};
