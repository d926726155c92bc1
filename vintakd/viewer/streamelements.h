#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "kelt4/keltcompressor.h"
#include "vintakd/viewer/framepixels.h"
#include "vintakd/viewer/outputquota.h"

/// Bytes of a frame's stream that go into the preview element.
inline constexpr size_t kPreviewBytes = 4096;

/// Where a frame's stream of `length` bytes is cut into its first part and the rest: 8 KiB for each 65536
/// pixels of 8 used bits, growing less than the frame does; the whole stream when it is shorter, or when no
/// bits are used.
size_t streamCut(int columns, int rows, int bitsUsed, size_t length);

/// The stream coder with the payload's memory aligned for whole words.
class CVintak_CKeltCompressor : public dvq::kelt4::CKeltCompressor {
public:
    using CKeltCompressor::CKeltCompressor;

    /// Released with free(); null when none can be had.
    void* allocBlock(size_t size) override;
};

/// The open files of a frame's stream elements; null for one that is not wanted.
struct StreamFiles {
    std::FILE* rest = nullptr;
    std::FILE* first = nullptr;
    std::FILE* preview = nullptr;
};

/// Writes the 24-byte header of stream elements: "QXID", version, intercept, slope, window width and centre
/// as 32-bit floats. 0 without a file, else 1.
int writeQXIDHeader(const FramePixels& frame, std::FILE* file);

/// Codes the frame once and writes the elements that have a file; their bytes are taken from `quota` before.
/// False when not all bytes were taken, or when the frame cannot be coded: `cause` then says why.
bool writeStreamElements(const FramePixels& frame, const StreamFiles& files, OutputQuota& quota,
                         std::string& cause);
