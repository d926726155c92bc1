#include "hsutils/replacefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

bool replaceFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".tmp";
    // Whatever has the name, a pipe perhaps that nobody reads, is not written into.
    unlink(temporary.c_str());
    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file < 0) return false;
    fchmod(file, 0644);  // however narrow our umask is
    errno = EIO;
    bool done = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (close(file) != 0) done = false;
    if (done && rename(temporary.c_str(), path.c_str()) == 0) return true;
    const int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return false;
}
