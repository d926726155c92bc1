#include "imgproc/framereader.h"

#include <dcmtk/dcmdata/dccodec.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>

#include "imgproc/fragmentcheck.h"

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

/// Frames of one sample a pixel under a colour model that is not converted, and so is read as grey. The
/// toolkit counts nothing there because the model ought to have more samples. 0 for every other kind of
/// frame.
uint32_t unconvertedFrameSize(DcmDataset& dataset) {
    OFString photometric;
    Uint16 samples = 0;
    Uint16 rows = 0;
    Uint16 columns = 0;
    Uint16 bits = 0;
    dataset.findAndGetOFString(DCM_PhotometricInterpretation, photometric);
    dataset.findAndGetUint16(DCM_SamplesPerPixel, samples);
    dataset.findAndGetUint16(DCM_Rows, rows);
    dataset.findAndGetUint16(DCM_Columns, columns);
    dataset.findAndGetUint16(DCM_BitsAllocated, bits);
    const bool unconverted = photometric == "HSV" || photometric == "ARGB" || photometric == "CMYK" ||
                             photometric == "YBR_PARTIAL_420";
    const uint64_t size = (uint64_t{rows} * columns * bits + 7) / 8;
    return unconverted && samples == 1 && bits <= 16 && size <= 0xFFFFFFFFu ? static_cast<uint32_t>(size) : 0;
}

/// The processes of the first JPEG standard, which one family of decoders serves.
bool isJpeg(E_TransferSyntax xfer) {
    return xfer >= EXS_JPEGProcess1 && xfer <= EXS_JPEGProcess14SV1;
}

}  // namespace

FrameReader::FrameReader(DcmDataset& dataset, DcmElement& element) : m_dataset(dataset), m_element(element) {
    Sint32 frames = 1;
    m_dataset.findAndGetSint32(DCM_NumberOfFrames, frames);
    m_frameCount = static_cast<uint32_t>(std::max<Sint32>(frames, 1));
    collectFragments(element);
    Uint32 size = 0;
    if (m_element.getUncompressedFrameSize(&m_dataset, size).good())
        m_frameSize = size;
    else if (!m_compressed)
        m_frameSize = unconvertedFrameSize(dataset);
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
    if (xfer == EXS_RLELossless) m_coding = Coding::RunLength;
    if (isJpeg(xfer)) m_coding = Coding::Jpeg;
    if (xfer == EXS_JPEGLSLossless || xfer == EXS_JPEGLSLossy) m_coding = Coding::JpegLs;
    m_sequence = sequence;
    for (DcmObject* item = nullptr; (item = sequence->nextInContainer(item)) != nullptr;)
        m_fragments.push_back(static_cast<DcmPixelItem*>(item));
    m_bytesBefore.push_back(0);
    for (DcmPixelItem* fragment : m_fragments)
        m_bytesBefore.push_back(m_bytesBefore.back() + fragment->getLength());
}

OFCondition FrameReader::read(uint32_t index, void* buffer, std::string& colorModel) {
    return m_compressed ? readCompressed(index, buffer, colorModel) : readNative(index, buffer, colorModel);
}

OFCondition FrameReader::readNative(uint32_t index, void* buffer, std::string& colorModel) {
    Uint32 toolkitSize = 0;
    const OFCondition known = m_element.getUncompressedFrameSize(&m_dataset, toolkitSize);
    if (known.bad() && m_nativeFrameSize == 0) return known;
    if (index >= m_frameCount) return EC_IllegalParameter;
    const uint64_t offset = uint64_t{index} * m_nativeFrameSize;
    if (m_nativeFrameSize > m_bufferSize || offset + m_nativeFrameSize > m_element.getLength())
        return makeOFCondition(OFM_dcmdata, 7, OF_error, "the pixel data ends before the frame does");
    const OFCondition result =
        m_element.getPartialValue(buffer, static_cast<Uint32>(offset), m_nativeFrameSize, &m_cache);
    if (result.bad()) return result;
    return m_dataset.findAndGetOFString(DCM_PhotometricInterpretation, colorModel);
}

/// Finds the first fragment of a frame for the toolkit's own decoders. The first frame needs no offset table,
/// even when fewer frames are there than the data set declares.
OFCondition FrameReader::findStart(uint32_t index) {
    if (m_nextFragment == 0 && index == 0) m_nextFragment = 1;
    if (m_nextFragment == 0) {
        const OFCondition found = DcmCodec::determineStartFragment(index, static_cast<Sint32>(m_frameCount),
                                                                   m_sequence, m_nextFragment);
        if (found.bad()) return found;
    }
    if (m_nextFragment < m_fragments.size()) return EC_Normal;
    return makeOFCondition(OFM_dcmdata, 7, OF_error, "there are no more fragments");
}

OFCondition FrameReader::checkFragment() {
    DcmPixelItem& fragment = *m_fragments[m_nextFragment];
    if (m_coding == Coding::Jpeg) return checkJpegMarkers(fragment);
    if (m_coding == Coding::RunLength)
        return checkRunLengthHeader(fragment, m_bytesBefore.back() - m_bytesBefore[m_nextFragment]);
    return EC_Normal;
}

OFCondition FrameReader::readCompressed(uint32_t index, void* buffer, std::string& colorModel) {
    const Uint32 first = m_nextFragment;
    if (m_coding != Coding::Other) {
        OFCondition checked = findStart(index);
        if (checked.good()) checked = checkFragment();
        if (checked.bad()) return checked;
    }
    const OFCondition result = m_element.getUncompressedFrame(&m_dataset, index, m_nextFragment, buffer,
                                                              m_bufferSize, colorModel, &m_cache);
    const size_t end = std::min<size_t>(m_nextFragment, m_fragments.size());
    for (size_t i = first; i < end; ++i)
        m_fragments[i]->compact();
    return result;
}
