#include "hsutils/StandardFiles.h"

#include <fcntl.h>
#include <unistd.h>

StandardFiles::StandardFiles() {
    for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(file, F_GETFD) >= 0) continue;
        // The lowest that is free; another one only where a thread was faster.
        const int opened = open("/dev/null", file == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (opened == file)
            m_occupied[static_cast<size_t>(file)] = true;
        else if (opened >= 0)
            close(opened);
    }
}

StandardFiles::~StandardFiles() {
    for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (m_occupied[static_cast<size_t>(file)]) close(file);
}
