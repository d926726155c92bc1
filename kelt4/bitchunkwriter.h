#pragma once

#include <memory>
#include <vector>

#include "kelt4/bitwriter.h"

namespace dvq::kelt4 {

/// A block of words that a chunk writer has filled or is filling.
template <class Word>
class CMemChunk {
public:
    explicit CMemChunk(size_t count) : m_words(new Word[count]), m_count(count) {}
    Word* words() { return m_words.get(); }
    size_t count() const { return m_count; }

private:
    std::unique_ptr<Word[]> m_words;
    size_t m_count;
};

/// A bit writer that grows block by block, so that nothing written is ever moved.
class CBitChunkWriter : public CBitWriter {
public:
    /// Words of one block.
    static constexpr size_t kChunkWords = 4096;

    const char* getType() const override { return "dynamic"; }
    uint64_t getTotal() const override { return m_completedBits + CBitWriter::getTotal(); }
    void flushBuffer() override;

    /// Appends to out the first min(getTotal(), maxBits) bits, all of them when maxBits is 0.
    void writeBitsTo(CBitWriter* out, size_t maxBits);

private:
    std::vector<CMemChunk<uint64_t>> m_chunks;
    uint64_t m_completedBits = 0;
};

}  // namespace dvq::kelt4
