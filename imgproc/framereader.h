#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcfcache.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hsutils/errorclass.h"
#include "imgproc/frameshape.h"

/// Reads the frames of a pixel data element one after another, uncompressed. What the element's file still
/// holds stays there: native frames are read one by one, compressed fragments are forgotten after use.
/// Fragments are counted once, and looked at before a decoder sees them (imgproc/fragmentcheck.h).
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

    /// The fragment where frame `index` (from 0; the count is the end of all) begins, as far as the object or
    /// the frames read so far tell: that of the next frame, the offset table. 0: they do not, or the frames
    /// are not compressed.
    uint32_t startOf(uint32_t index);

    /// What lies behind the last frame that the data set declares, once that was read: "2 frames" of native
    /// pixel data, "2 fragments" with content of compressed ones; empty when it is less than one.
    std::string surplus() const;

    /// Bytes, an even number, of the buffer that read() fills.
    void setBufferSize(uint32_t size) { m_bufferSize = size; }

    /// Puts frame `index` (from 0) into `buffer` and the color model of its samples into `colorModel`. What
    /// the frame does not reach of the buffer becomes zero: an earlier frame never shows. After a failure the
    /// buffer's content is of no use. Compressed frames are best read in ascending order.
    OFCondition read(uint32_t index, void* buffer, std::string& colorModel);

private:
    enum class Coding { RunLength, Jpeg, JpegLs, Other };

    /// Decoders that go astray among several frames or fragments.
    bool decodesAlone() const { return m_coding == Coding::JpegLs || m_coding == Coding::RunLength; }
    void collectFragments(DcmElement& element);
    void collectAttributes();
    uint32_t declaredStart(uint32_t index);
    uint32_t endOfFrame(uint32_t index, uint32_t first);
    OFCondition findStart(uint32_t index);
    bool beginsFrame(DcmPixelItem& fragment) const;
    OFCondition checkFragment(DcmPixelItem& fragment);
    OFCondition decode(DcmPixelSequence& fragments, uint32_t index, uint32_t& fragment, void* buffer,
                       std::string& colorModel);
    DcmItem& narrowAttributes();
    OFCondition readNative(uint32_t index, void* buffer, std::string& colorModel);
    OFCondition readCompressed(uint32_t index, void* buffer, std::string& colorModel);
    OFCondition decodeFromHere(uint32_t index, void* buffer, std::string& colorModel);
    OFCondition decodeAlone(uint32_t index, void* buffer, std::string& colorModel);
    OFCondition join(uint32_t first, uint32_t end, DcmPixelItem& joined);

    DcmDataset& m_dataset;
    DcmElement& m_element;
    /// What decoders ask of the data set: to look it up there takes the data set's whole length.
    DcmItem m_attributes;
    /// The same for samples of at most 8 bits under 16 bits allocated, once there are any.
    std::unique_ptr<DcmItem> m_narrowAttributes;
    FrameShape m_shape;
    DcmFileCache m_cache;
    bool m_compressed = false;
    OFCondition m_sizeKnown;
    uint32_t m_frameSize = 0;
    uint32_t m_nativeFrameSize = 0;
    uint32_t m_frameCount = 1;
    uint32_t m_bufferSize = 0;

    // Compressed frames.
    Coding m_coding = Coding::Other;
    E_TransferSyntax m_syntax = EXS_Unknown;
    const DcmRepresentationParameter* m_parameter = nullptr;
    std::vector<DcmPixelItem*> m_fragments;  ///< with the offset table, as number 0
    std::vector<uint64_t> m_offsets;         ///< of each fragment as the offset table counts, and of the end
    std::vector<uint32_t> m_table;           ///< the offset table
    bool m_narrow = false;                   ///< the frame is decoded into bytes, under 16 bits allocated
    uint32_t m_nextIndex = 0;                ///< the frame that m_nextFragment belongs to
    Uint32 m_nextFragment = 0;               ///< first fragment of the next frame, 0 when not known
};

/// Why a frame of transfer syntax `xfer` could not be read, in words.
RefusalText decodingFailure(const OFCondition& condition, E_TransferSyntax xfer);
