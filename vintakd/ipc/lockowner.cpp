#include "vintakd/ipc/lockowner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "vintakd/ipc/processes.h"

namespace ipc {

namespace {

constexpr int kHalf = 32;

uint64_t namespaceHere() {
    struct stat status {};
    return stat("/proc/self/ns/pid", &status) == 0 ? static_cast<uint32_t>(status.st_ino) : 0;
}

/// A process whose first thread has ended is a zombie to look at, while others of its threads go on.
bool hasOtherThreads(pid_t pid) {
    constexpr nlink_t kOfOneThread = 3;
    struct stat status {};
    return stat(("/proc/" + std::to_string(pid) + "/task").c_str(), &status) == 0 &&
           status.st_nlink > kOfOneThread;
}

}  // namespace

uint64_t ownerHere() {
    static std::atomic<uint64_t> s_owner{0};
    const auto pid = static_cast<uint32_t>(getpid());
    uint64_t owner = s_owner.load(std::memory_order_relaxed);
    if (static_cast<uint32_t>(owner) == pid) return owner;
    const uint64_t space = namespaceHere();  // a child may be in another one
    owner = space == 0 ? 0 : space << kHalf | pid;
    s_owner.store(owner, std::memory_order_relaxed);
    return owner;
}

bool ownerIsGone(uint64_t owner) {
    const auto pid = static_cast<pid_t>(static_cast<uint32_t>(owner));
    return owner != 0 && owner >> kHalf == namespaceHere() && !processLives(pid) && !hasOtherThreads(pid);
}

}  // namespace ipc
