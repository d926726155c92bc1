#include "kelt4/chunkstore.h"

#include <cstdlib>
#include <new>

namespace dvq::kelt4 {

void growSink(BitSink& sink, size_t words) {
    const auto used = static_cast<size_t>(sink.current - sink.words);
    const size_t capacity = used + used / 2 + words + 3 * kSinkRoom;
    auto* const grown = static_cast<uint64_t*>(std::realloc(sink.words, capacity * sizeof(uint64_t)));
    if (grown == nullptr) throw std::bad_alloc();
    sink.words = grown;
    sink.current = grown + used;
    sink.end = grown + capacity;
}

template <class Visitor>
void ChunkStore::forEachSink(Visitor&& visit) {
    for (auto& classes : m_chunks) {
        for (auto& chunks : classes) {
            for (auto& plane : chunks.planes) {
                visit(plane.significance);
                visit(plane.refinement);
            }
        }
    }
}

ChunkStore::~ChunkStore() {
    forEachSink([](BitSink& sink) { std::free(sink.words); });
}

void ChunkStore::clear(int components, int levels) {
    const auto empty = [](BitSink& sink) {
        sink.current = sink.words;
        sink.accumulator = 0;
        sink.pending = 0;
    };
    for (int c = 0; c < components; ++c) {
        for (int j = 0; j <= levels; ++j) {
            ClassChunks& chunks = m_chunks[c][j];
            chunks.seen = 0;
            for (PlaneChunks& plane : chunks.planes) {
                empty(plane.significance);
                empty(plane.refinement);
                plane.significant = plane.passed = 0;
            }
        }
    }
}

size_t ChunkStore::heldBytes() const {
    size_t bytes = 0;
    const_cast<ChunkStore*>(this)->forEachSink(
        [&](BitSink& sink) { bytes += 8 * static_cast<size_t>(sink.end - sink.words); });
    return bytes;
}

}  // namespace dvq::kelt4
