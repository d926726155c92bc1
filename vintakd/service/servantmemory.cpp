#include "vintakd/service/servantmemory.h"

#include <malloc.h>

#include <cstddef>

namespace {

// The largest that the allocator takes. Its own, moving threshold comes here too, once such a block was
// freed.
constexpr int kMappedBytes = 32 << 20;
// What is free at the heap's end stays, up to this.
constexpr int kKeptBytes = 64 << 20;

}  // namespace

void keepHeapForNextRequest() {
    mallopt(M_MMAP_THRESHOLD, kMappedBytes);
    mallopt(M_TRIM_THRESHOLD, kKeptBytes);
}

void giveBackSurplusHeap() {
    if (mallinfo2().fordblks > size_t{kKeptBytes}) malloc_trim(0);
}
