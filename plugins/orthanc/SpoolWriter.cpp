#include "plugins/orthanc/SpoolWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

/// The feeder passes over names that begin with a '.'.
constexpr const char* kTemporary = ".orthanc-";

bool writeAll(int file, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(file, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

SpoolWriter::SpoolWriter(std::string folder, bool sync) : m_folder(std::move(folder)), m_sync(sync) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_folder, error)) {
        std::error_code ignored;
        if (entry.path().filename().string().rfind(kTemporary, 0) == 0) fs::remove(entry.path(), ignored);
    }
    if (error) throw std::runtime_error(m_folder + ": " + error.message());
}

std::string SpoolWriter::temporaryName() {
    return m_folder + "/" + kTemporary + std::to_string(getpid()) + "-" + std::to_string(m_count++);
}

void SpoolWriter::write(const std::string& name, const void* bytes, size_t size) {
    const std::string temporary = temporaryName(), path = m_folder + "/" + name;
    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640);
    if (file < 0) throw std::runtime_error(temporary + ": " + std::strerror(errno));
    // Whatever the mask of Orthanc's service: the group is to read it, nobody else.
    bool done = fchmod(file, 0640) == 0 && writeAll(file, static_cast<const char*>(bytes), size) &&
                (!m_sync || fsync(file) == 0);
    int error = errno;
    if (close(file) != 0 && done) {
        done = false;
        error = errno;
    }
    if (done && rename(temporary.c_str(), path.c_str()) == 0) return;
    if (done) error = errno;
    unlink(temporary.c_str());
    throw std::runtime_error(path + ": " + std::strerror(error));
}
