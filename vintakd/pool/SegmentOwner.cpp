#include "vintakd/pool/SegmentOwner.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vintakd/ipc/GatewayBase.h"
#include "vintakd/pool/DaemonInfo.h"

namespace {

/// Whether the segment's name stands for the object open at `descriptor`. Asked through the file system,
/// because closing a second descriptor of the object would drop its owner's lock.
bool nameStandsFor(const char* name, int descriptor) {
    const std::string path = "/dev/shm" + segmentObjectName(name);
    struct stat byName {};
    struct stat byDescriptor {};
    return stat(path.c_str(), &byName) == 0 && fstat(descriptor, &byDescriptor) == 0 &&
           byName.st_dev == byDescriptor.st_dev && byName.st_ino == byDescriptor.st_ino;
}

}  // namespace

bool segmentHasOwner(const char* name) {
    const int descriptor = shm_open(segmentObjectName(name).c_str(), O_RDWR | O_CLOEXEC, 0);
    if (descriptor < 0) return false;
    struct flock query {};
    query.l_type = F_WRLCK;
    query.l_whence = SEEK_SET;
    const bool owned = fcntl(descriptor, F_GETLK, &query) == 0 && query.l_type != F_UNLCK;
    close(descriptor);
    return owned;
}

bool ownSegment(const char* name, int descriptor) {
    return lockfile(descriptor) == 0 && nameStandsFor(name, descriptor);
}

void removeOwnSegment(const char* name, int descriptor) {
    if (nameStandsFor(name, descriptor)) GatewayBase::remove(name);
}
