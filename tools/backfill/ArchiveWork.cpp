#include "tools/backfill/ArchiveWork.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/backfill/ArchiveWalk.h"

namespace {

/// What stands in the way of working on a file; `passed` where that is no failure.
WorkResult obstacle(const std::string& path, bool all, bool& isFree) {
    using Kind = WorkResult::Kind;
    isFree = false;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0) {
        const bool isGone = errno == ENOENT || errno == ENOTDIR;
        return {.kind = isGone ? Kind::passed : Kind::failed,
                .errorClass = ErrorClass::file,
                .cause = std::strerror(errno)};
    }
    constexpr off_t kPreamble = 128;
    struct stat status {};
    char magic[4] = "";
    const bool isFile = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    const ssize_t got = isFile && !all ? pread(file, magic, sizeof magic, kPreamble) : 0;
    const int error = errno;
    close(file);
    if (!isFile) return {.kind = Kind::passed, .cause = "is not a regular file"};
    if (got < 0) return {.kind = Kind::failed, .errorClass = ErrorClass::file, .cause = std::strerror(error)};
    isFree = all || std::memcmp(magic, "DICM", sizeof magic) == 0;
    return {.kind = Kind::passed, .cause = "does not begin as a DICOM file does"};
}

/// "NAME" and "NAME.dcm" are one name, which an archive may have twice.
bool isTwin(const SpoolObject& object) {
    struct stat status {};
    const std::string other = keyOf(object.path);
    return other != object.path && stat(other.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

WorkResult ArchiveWork::run(const SpoolObject& object) {
    bool isFree = false;
    WorkResult result = obstacle(object.path, m_all, isFree);
    const bool isGone = result.kind == WorkResult::Kind::passed && result.errorClass == ErrorClass::file;
    if (isGone && !archiveIsThere(m_archive))
        return {.kind = WorkResult::Kind::unreachable, .cause = nothingIn(m_archive)};
    if (!isFree) return result;
    if (isTwin(object))
        return {.errorClass = ErrorClass::request,
                .cause = "its results would be those of the file beside it without \".dcm\""};
    SpoolObject looked = object;
    struct stat status {};
    if (stat(object.path.c_str(), &status) == 0) {
        looked.modified = status.st_mtim;
        looked.size = status.st_size;
    }
    return m_work.run(looked);
}
