#include "imgproc/framereader.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>

namespace {

/// Frames of subsampled colour as they lie in a native element: two pixels in four bytes. The toolkit counts
/// three bytes a pixel for them. 0 for every other kind of frame.
uint32_t subsampledFrameSize(DcmDataset& dataset) {
    OFString photometric;
    Uint16 rows = 0;
    Uint16 columns = 0;
    Uint16 bits = 0;
    dataset.findAndGetOFString(DCM_PhotometricInterpretation, photometric);
    if (photometric != "YBR_FULL_422" && photometric != "YBR_PARTIAL_422") return 0;
    dataset.findAndGetUint16(DCM_Rows, rows);
    dataset.findAndGetUint16(DCM_Columns, columns);
    dataset.findAndGetUint16(DCM_BitsAllocated, bits);
    const uint64_t size = uint64_t{2} * rows * columns;
    return bits == 8 && size <= 0xFFFFFFFFu ? static_cast<uint32_t>(size) : 0;
}

}  // namespace

FrameReader::FrameReader(DcmDataset& dataset, DcmElement& element) : m_dataset(dataset), m_element(element) {
    Sint32 frames = 1;
    m_dataset.findAndGetSint32(DCM_NumberOfFrames, frames);
    m_frameCount = static_cast<uint32_t>(std::max<Sint32>(frames, 1));
    collectFragments(element);
    Uint32 size = 0;
    if (m_element.getUncompressedFrameSize(&m_dataset, size).good()) m_frameSize = size;
    m_nativeFrameSize = m_frameSize;
    if (const uint32_t subsampled = subsampledFrameSize(dataset);
        subsampled != 0 && m_frameSize >= subsampled)
        m_nativeFrameSize = subsampled;
}

void FrameReader::collectFragments(DcmElement& element) {
    auto* pixelData = dynamic_cast<DcmPixelData*>(&element);
    if (pixelData == nullptr) return;
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixelData->getOriginalRepresentationKey(xfer, parameter);
    DcmPixelSequence* sequence = nullptr;
    if (!DcmXfer(xfer).isEncapsulated() ||
        pixelData->getEncapsulatedRepresentation(xfer, parameter, sequence).bad() || sequence == nullptr)
        return;
    m_compressed = true;
    for (DcmObject* item = nullptr; (item = sequence->nextInContainer(item)) != nullptr;)
        m_fragments.push_back(static_cast<DcmPixelItem*>(item));
}

OFCondition FrameReader::read(uint32_t index, void* buffer, std::string& colorModel) {
    return m_compressed ? readCompressed(index, buffer, colorModel) : readNative(index, buffer, colorModel);
}

OFCondition FrameReader::readNative(uint32_t index, void* buffer, std::string& colorModel) {
    Uint32 toolkitSize = 0;
    const OFCondition known = m_element.getUncompressedFrameSize(&m_dataset, toolkitSize);
    if (known.bad()) return known;
    if (index >= m_frameCount) return EC_IllegalParameter;
    const uint64_t offset = uint64_t{index} * m_nativeFrameSize;
    if (m_nativeFrameSize > m_bufferSize || offset + m_nativeFrameSize > m_element.getLength())
        return makeOFCondition(OFM_dcmdata, 7, OF_error, "the pixel data ends before the frame does");
    const OFCondition result =
        m_element.getPartialValue(buffer, static_cast<Uint32>(offset), m_nativeFrameSize, &m_cache);
    if (result.bad()) return result;
    return m_dataset.findAndGetOFString(DCM_PhotometricInterpretation, colorModel);
}

OFCondition FrameReader::readCompressed(uint32_t index, void* buffer, std::string& colorModel) {
    const Uint32 first = m_nextFragment;
    const OFCondition result = m_element.getUncompressedFrame(&m_dataset, index, m_nextFragment, buffer,
                                                              m_bufferSize, colorModel, &m_cache);
    // Of a frame that was found by its number the fragments are those before the next frame.
    const size_t end = std::min<size_t>(m_nextFragment, m_fragments.size());
    for (size_t i = first; i < end; ++i)
        m_fragments[i]->compact();
    return result;
}
