#include "vintakd/service/servantmemory.h"

#include <malloc.h>
#include <unistd.h>

#include <cstddef>

namespace {

// The largest that the allocator takes. Its own, moving threshold comes here too, once such a block was
// freed.
constexpr int kMappedBytes = 32 << 20;
// What is free at the heap's end stays, up to this.
constexpr int kKeptBytes = 64 << 20;

/// Where the heap begins, or before; null while nobody knows.
const char* s_heap = nullptr;

const char* endOfHeap() {
    return static_cast<const char*>(sbrk(0));
}

}  // namespace

void keepHeapForNextRequest() {
    mallopt(M_MMAP_THRESHOLD, kMappedBytes);
    mallopt(M_TRIM_THRESHOLD, kKeptBytes);
    s_heap = endOfHeap() - mallinfo2().arena;
}

void giveBackSurplusHeap() {
    // Looking what is free takes the allocator's lists apart; a heap that is not so large has no surplus.
    if (s_heap != nullptr && endOfHeap() - s_heap <= kKeptBytes) return;
    if (mallinfo2().fordblks > size_t{kKeptBytes}) malloc_trim(0);
}
