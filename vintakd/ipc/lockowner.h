#pragma once

#include <atomic>
#include <cstdint>

namespace ipc {

/// Who holds a lock, beside it in shared memory: the pid in the lower half, the number of the pid namespace
/// that it counts in in the upper one; 0 where nobody holds it, or one who does not say so. Written by the
/// holder alone: after it took the lock and before it lets go.
using LockOwner = std::atomic<uint64_t>;
static_assert(sizeof(LockOwner) == 8 && LockOwner::is_always_lock_free);

/// What this process writes there; 0 where the system does not tell.
uint64_t ownerHere();

/// Whether `owner` was a process that this one would see, and no thread of it is left.
bool ownerIsGone(uint64_t owner);

}  // namespace ipc
