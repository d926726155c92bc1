#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcfcache.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <cstdint>
#include <string>
#include <vector>

/// Reads the frames of a pixel data element one after another, uncompressed. What the element's file still
/// holds stays there: native frames are read one by one, compressed fragments are forgotten after use.
class FrameReader {
public:
    /// Borrows both; the element is the data set's pixel data.
    FrameReader(DcmDataset& dataset, DcmElement& element);

    /// Bytes of one uncompressed frame, 0 when the attributes do not tell.
    uint32_t frameSize() const { return m_frameSize; }

    /// Bytes from one native frame to the next: fewer than frameSize() for subsampled colour.
    uint32_t nativeFrameSize() const { return m_nativeFrameSize; }

    /// Whether the element holds compressed fragments.
    bool compressed() const { return m_compressed; }

    /// Frames that the data set declares (0028,0008), at least 1.
    uint32_t frameCount() const { return m_frameCount; }

    /// Bytes, an even number, of the buffer that read() fills.
    void setBufferSize(uint32_t size) { m_bufferSize = size; }

    /// Puts frame `index` (from 0) into `buffer` and the color model of its samples into `colorModel`.
    /// Compressed frames are best read in ascending order.
    OFCondition read(uint32_t index, void* buffer, std::string& colorModel);

private:
    enum class Coding { RunLength, Jpeg, JpegLs, Other };

    void collectFragments(DcmElement& element);
    OFCondition findStart(uint32_t index);
    OFCondition checkFragment();
    OFCondition readNative(uint32_t index, void* buffer, std::string& colorModel);
    OFCondition readCompressed(uint32_t index, void* buffer, std::string& colorModel);

    DcmDataset& m_dataset;
    DcmElement& m_element;
    DcmFileCache m_cache;
    bool m_compressed = false;
    uint32_t m_frameSize = 0;
    uint32_t m_nativeFrameSize = 0;
    uint32_t m_frameCount = 1;
    uint32_t m_bufferSize = 0;
    Uint32 m_nextFragment = 0;  ///< first fragment of the next frame, 0 when not known
    Coding m_coding = Coding::Other;
    DcmPixelSequence* m_sequence = nullptr;
    std::vector<DcmPixelItem*> m_fragments;  ///< with the offset table, as number 0
    std::vector<uint64_t> m_bytesBefore;     ///< of each fragment, and of the end
};
