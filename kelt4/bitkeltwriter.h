#pragma once

#include "kelt4/bitwriter.h"

namespace dvq::kelt4 {

class CKeltCompressor;

/// A bit writer with one buffer, allocated at the first bit with the size announced by setSize().
///
/// At the end of that buffer it throws the integer 3: the stream then ends exactly at the capacity.
class CBitLazyWriter : public CBitWriter {
public:
    const char* getType() const override { return "lazy"; }
    void flushBuffer() override;
    void setSize(size_t bytes) override;

    virtual void* allocateBlock(size_t bytes) = 0;
    virtual void deleteBlock(void* block) = 0;

    /// Fixes the capacity in bytes, whatever setSize() announces later. Before the first bit only.
    void fixSize(size_t bytes);

protected:
    void releaseBuffer();

private:
    size_t m_requested = 0;
    bool m_sizeFixed = false;
};

/// The compressor's output: a stream preceded by the 16 bytes of the compressor's header in the same block.
///
/// Blocks come from CKeltCompressor::allocBlock(). The block belongs to the writer until detach().
class CBitKeltWriter : public CBitLazyWriter {
public:
    explicit CBitKeltWriter(CKeltCompressor* compressor) : m_compressor(compressor) {}
    ~CBitKeltWriter() override;

    void* allocateBlock(size_t bytes) override;
    void deleteBlock(void* block) override;

    /// Start of the block (16 bytes before the stream), null before the first bit or after detach().
    unsigned char* block() const;
    /// Hands the block to the caller, who gives it back to CKeltCompressor::freeBlock() or to free().
    unsigned char* detach();

private:
    CKeltCompressor* m_compressor;
    bool m_owns = true;
};

}  // namespace dvq::kelt4
