#include "tools/view/OpenFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace view {

std::shared_ptr<OpenFile> OpenFile::open(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return nullptr;
    struct stat about {};
    if (fstat(file, &about) == 0 && S_ISREG(about.st_mode))
        return std::make_shared<OpenFile>(file, static_cast<size_t>(about.st_size));
    close(file);
    return nullptr;
}

OpenFile::~OpenFile() {
    close(m_file);
}

size_t OpenFile::read(size_t offset, std::span<char> piece) const {
    const ssize_t count = pread(m_file, piece.data(), piece.size(), static_cast<off_t>(offset));
    return count > 0 ? static_cast<size_t>(count) : 0;
}

}  // namespace view
