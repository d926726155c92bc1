#pragma once

#include <cstddef>

#include "kelt4/keltcompressor.h"

/// Bytes of a frame's stream that go into the preview element.
inline constexpr std::size_t previewBytes = 4096;

/// Where a frame's stream of `length` bytes is cut into its first part and the rest: 8 KiB for each 65536
/// pixels of 8 used bits, growing less than the frame does; the whole stream when it is shorter, or when no
/// bits are used.
std::size_t streamCut(int columns, int rows, int bitsUsed, std::size_t length);

/// The stream coder with the payload's memory aligned for whole words.
class CVintak_CKeltCompressor : public dvq::kelt4::CKeltCompressor {
public:
    using CKeltCompressor::CKeltCompressor;

    /// Released with free(); null when none can be had.
    void* allocBlock(std::size_t size) override;
};
