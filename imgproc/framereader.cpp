#include "imgproc/framereader.h"

#include <dcmtk/dcmdata/dccodec.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "imgproc/byteorder.h"
#include "imgproc/elementvalues.h"
#include "imgproc/fragmentcheck.h"
#include "imgproc/fragmentview.h"
#include "imgproc/frameshape.h"
#include "imgproc/objectlimits.h"
#include "imgproc/objectsyntax.h"

namespace {

/// Where a size does not fit the length of an element, there is none.
uint32_t elementSize(uint64_t size) {
    return size <= 0xFFFFFFFFu ? static_cast<uint32_t>(size) : 0;
}

/// Frames of subsampled colour as they lie in a native element: two pixels in four bytes. The toolkit counts
/// three bytes a pixel for them. 0 for every other kind of frame.
uint32_t subsampledFrameSize(const FrameShape& shape) {
    const bool subsampled = shape.photometric == "YBR_FULL_422" || shape.photometric == "YBR_PARTIAL_422";
    return subsampled && shape.allocated == 8 ? elementSize(2 * shape.pixels()) : 0;
}

/// Frames of one sample a pixel under a colour model that is not converted, and so is read as grey. The
/// toolkit counts nothing there because the model ought to have more samples. 0 for every other kind of
/// frame.
uint32_t unconvertedFrameSize(const FrameShape& shape) {
    const bool unconverted = shape.photometric == "HSV" || shape.photometric == "ARGB" ||
                             shape.photometric == "CMYK" || shape.photometric == "YBR_PARTIAL_420";
    const bool grey = shape.samples == 1 && shape.allocated <= 16;
    return unconverted && grey ? elementSize(shape.decodedBytes()) : 0;
}

/// Bytes of a frame by the attributes alone: the toolkit counts the bits of frames whose samples are not
/// whole bytes in 32 bits. 0 when that is too much for an element.
uint32_t plainFrameSize(const FrameShape& shape) {
    return shape.allocated <= 64 ? elementSize(shape.decodedBytes()) : 0;
}

/// The processes of the first JPEG standard, which one family of decoders serves.
bool isJpeg(E_TransferSyntax xfer) {
    return xfer >= EXS_JPEGProcess1 && xfer <= EXS_JPEGProcess14SV1;
}

/// The entries of the basic offset table, none when it is empty.
std::vector<uint32_t> offsetTable(DcmPixelItem& item) {
    std::vector<uint32_t> offsets;
    Uint8* bytes = nullptr;
    if (item.getLength() < 4 || item.getUint8Array(bytes).bad() || bytes == nullptr) return offsets;
    for (uint32_t at = 0; at + 4 <= item.getLength(); at += 4)
        offsets.push_back(fourBytes({bytes + at, 4}, false));
    return offsets;
}

bool beginsJpegStream(DcmPixelItem& fragment) {
    std::array<uint8_t, 2> start{};
    return fragment.getLength() >= start.size() && fragment.getPartialValue(start.data(), 0, 2).good() &&
           start[0] == 0xFF && start[1] == 0xD8;
}

/// Bytes to 16-bit samples of the same values, in place.
void widen(uint8_t* samples, uint64_t count) {
    for (uint64_t i = count; i-- > 0;) {
        const uint16_t sample = samples[i];
        std::memcpy(samples + 2 * i, &sample, sizeof sample);
    }
}

}  // namespace

FrameReader::FrameReader(DcmDataset& dataset, DcmElement& element)
    : m_dataset(dataset), m_element(element), m_shape(dataset) {
    Sint32 frames = 1;
    m_dataset.findAndGetSint32(DCM_NumberOfFrames, frames);
    m_frameCount = static_cast<uint32_t>(std::max<Sint32>(frames, 1));
    collectFragments(element);
    Uint32 size = 0;
    m_sizeKnown = m_element.getUncompressedFrameSize(&m_dataset, size);
    if (m_sizeKnown.good())
        m_frameSize = std::max(size, plainFrameSize(m_shape));
    else if (!m_compressed)
        m_frameSize = unconvertedFrameSize(m_shape);
    m_nativeFrameSize = m_frameSize;
    if (const uint32_t subsampled = subsampledFrameSize(m_shape);
        subsampled != 0 && m_frameSize >= subsampled)
        m_nativeFrameSize = subsampled;
}

void FrameReader::collectFragments(DcmElement& element) {
    auto* pixelData = dynamic_cast<DcmPixelData*>(&element);
    if (pixelData == nullptr) return;
    pixelData->getOriginalRepresentationKey(m_syntax, m_parameter);
    DcmPixelSequence* sequence = nullptr;
    if (!DcmXfer(m_syntax).isEncapsulated() ||
        pixelData->getEncapsulatedRepresentation(m_syntax, m_parameter, sequence).bad() ||
        sequence == nullptr)
        return;
    m_compressed = true;
    if (m_syntax == EXS_RLELossless) m_coding = Coding::RunLength;
    if (isJpeg(m_syntax)) m_coding = Coding::Jpeg;
    if (m_syntax == EXS_JPEGLSLossless || m_syntax == EXS_JPEGLSLossy) m_coding = Coding::JpegLs;
    constexpr uint64_t kItemHeader = 8;
    m_offsets = {0, 0};
    for (DcmObject* item = nullptr; (item = sequence->nextInContainer(item)) != nullptr;) {
        m_fragments.push_back(static_cast<DcmPixelItem*>(item));
        if (m_fragments.size() > 1)
            m_offsets.push_back(m_offsets.back() + kItemHeader + m_fragments.back()->getLength());
    }
    if (!m_fragments.empty()) m_table = offsetTable(*m_fragments.front());
}

void FrameReader::collectAttributes() {
    if (m_attributes.card() != 0) return;
    constexpr Uint16 kImageGroup = 0x0028;
    constexpr uint32_t kLongestAttribute = 1024;
    for (DcmObject* object = nullptr; (object = m_dataset.nextInContainer(object)) != nullptr;) {
        auto* element = static_cast<DcmElement*>(object);
        const bool wanted = object->getGTag() == kImageGroup || object->getTag() == DCM_SOPClassUID;
        if (!wanted || !object->isLeaf() || element->getLength() > kLongestAttribute) continue;
        auto* copy = static_cast<DcmElement*>(element->clone());
        if (m_attributes.insert(copy, OFTrue).bad()) delete copy;
    }
    // The decoders compare the texts as they are.
    if (const auto model = textOf(m_attributes, DCM_PhotometricInterpretation))
        m_attributes.putAndInsertString(DCM_PhotometricInterpretation, model->c_str());
    if (const TransferSyntax* syntax = highThroughputOf(m_dataset))
        m_attributes.putAndInsertString(DCM_TransferSyntaxUID, std::string(syntax->uid).c_str());
    if (decodesAlone()) m_attributes.putAndInsertString(DCM_NumberOfFrames, "1");
}

OFCondition FrameReader::read(uint32_t index, void* buffer, std::string& colorModel) {
    collectAttributes();
    // Decoders leave the buffer as it is where their stream has no samples.
    const uint32_t kept = m_compressed ? 0 : std::min(m_nativeFrameSize, m_bufferSize);
    std::memset(static_cast<uint8_t*>(buffer) + kept, 0, m_bufferSize - kept);
    return m_compressed ? readCompressed(index, buffer, colorModel) : readNative(index, buffer, colorModel);
}

std::string FrameReader::surplus() const {
    if (!m_compressed) {
        if (m_nativeFrameSize == 0) return {};
        // An odd number of bytes is padded with one, which is no frame even where frames have one byte.
        const uint64_t declared = uint64_t{m_frameCount} * m_nativeFrameSize;
        const uint64_t length = m_element.getLength();
        const uint64_t frames = (length - (declared % 2 != 0 && length == declared + 1)) / m_nativeFrameSize;
        return frames > m_frameCount ? std::to_string(frames - m_frameCount) + " frames" : "";
    }
    if (m_nextFragment == 0 || m_nextFragment >= m_fragments.size()) return {};
    const auto fragments = std::count_if(m_fragments.begin() + m_nextFragment, m_fragments.end(),
                                         [](DcmPixelItem* fragment) { return fragment->getLength() > 0; });
    return fragments > 0 ? std::to_string(fragments) + " fragments" : "";
}

OFCondition FrameReader::readNative(uint32_t index, void* buffer, std::string& colorModel) {
    if (m_sizeKnown.bad() && m_nativeFrameSize == 0) return m_sizeKnown;
    if (index >= m_frameCount) return EC_IllegalParameter;
    const uint64_t offset = uint64_t{index} * m_nativeFrameSize;
    if (m_nativeFrameSize > m_bufferSize || offset + m_nativeFrameSize > m_element.getLength())
        return frameError("the pixel data ends before the frame does");
    const OFCondition result =
        m_element.getPartialValue(buffer, static_cast<Uint32>(offset), m_nativeFrameSize, &m_cache);
    if (result.bad()) return result;
    return m_attributes.findAndGetOFString(DCM_PhotometricInterpretation, colorModel);
}

/// The first fragment of a frame by what the object says about all of them; 0 when it does not tell.
uint32_t FrameReader::declaredStart(uint32_t index) {
    if (index == 0) return 1;
    if (m_fragments.size() == uint64_t{m_frameCount} + 1) return index + 1;
    if (index >= m_table.size()) return 0;
    const auto first = m_offsets.begin() + 1;
    const auto found = std::lower_bound(first, m_offsets.end(), m_table[index]);
    return found != m_offsets.end() && *found == m_table[index]
               ? static_cast<uint32_t>(found - m_offsets.begin())
               : 0;
}

uint32_t FrameReader::startOf(uint32_t index) {
    if (!m_compressed) return 0;
    return m_nextFragment != 0 && index == m_nextIndex ? m_nextFragment : declaredStart(index);
}

/// Makes the next fragment that of a frame, in the order of the frames from one to the next. The first frame
/// needs no offset table, even when fewer frames are there than the data set declares.
OFCondition FrameReader::findStart(uint32_t index) {
    if (m_nextFragment == 0 || index != m_nextIndex) m_nextFragment = declaredStart(index);
    m_nextIndex = index;
    if (m_nextFragment == 0)
        return frameError("the offset table does not say where it begins among " +
                          std::to_string(m_fragments.size() - 1) + " fragments");
    if (m_nextFragment < m_fragments.size()) return EC_Normal;
    return frameError("there are no more fragments");
}

/// One past the last fragment of a frame that begins with `first`: where neither numbers nor the offset table
/// tell, each fragment that begins a stream begins a frame, and run lengths have a fragment for each. The
/// last frame takes what is left, but for fragments that begin frames which the object does not declare.
uint32_t FrameReader::endOfFrame(uint32_t index, uint32_t first) {
    const auto all = static_cast<uint32_t>(m_fragments.size());
    if (all == uint64_t{m_frameCount} + 1) return first + 1;
    const bool last = index + 1 == m_frameCount;
    if (!last) {
        const uint32_t next = declaredStart(index + 1);
        if (next > first) return std::min(next, all);
    }
    uint32_t end = first + 1;
    while ((last || m_coding == Coding::JpegLs) && end < all && !beginsFrame(*m_fragments[end]))
        ++end;
    return end;
}

bool FrameReader::beginsFrame(DcmPixelItem& fragment) const {
    if (m_coding != Coding::RunLength) return beginsJpegStream(fragment);
    Uint8* value = nullptr;
    return fragment.getUint8Array(value).good() && value != nullptr &&
           checkRunLengths({value, fragment.getLength()}, m_shape).good();
}

/// Looks at a frame's fragment before the decoder does, and finds out how wide its samples will be.
OFCondition FrameReader::checkFragment(DcmPixelItem& fragment) {
    m_narrow = false;
    OFCondition result = checkDecodedBits(m_shape);
    Uint8* value = nullptr;
    if (result.good()) result = fragment.getUint8Array(value);
    if (result.bad()) return result;
    const std::span<const uint8_t> bytes{value, value != nullptr ? fragment.getLength() : 0};
    if (m_coding == Coding::RunLength) return checkRunLengths(bytes, m_shape);
    const JpegFamily family = m_coding == Coding::Jpeg ? JpegFamily::Jpeg : JpegFamily::JpegLs;
    unsigned precision = 0;
    result = checkJpegMarkers(bytes, family, m_shape, precision);
    m_narrow = precision <= 8 && m_shape.allocated == 16;
    return result;
}

OFCondition FrameReader::readCompressed(uint32_t index, void* buffer, std::string& colorModel) {
    if (m_sizeKnown == EC_InvalidValue)
        return frameError("Samples per Pixel of " + std::to_string(m_shape.samples) +
                          " contradicts Photometric Interpretation " + m_shape.photometric);
    if (m_sizeKnown.bad()) return m_sizeKnown;
    if (index >= m_frameCount || m_bufferSize < uint64_t{m_frameSize} + m_frameSize % 2)
        return EC_IllegalParameter;
    if (m_fragments.size() < 2) return frameError("the pixel data has no fragments");
    const uint32_t first = m_nextFragment;
    const OFCondition result =
        decodesAlone() ? decodeAlone(index, buffer, colorModel) : decodeFromHere(index, buffer, colorModel);
    m_nextIndex = index + 1;
    const size_t end = std::min<size_t>(m_nextFragment, m_fragments.size());
    for (size_t i = first; i < end; ++i)
        m_fragments[i]->compact();
    return result;
}

/// Lets the decoder find out which fragments it needs.
OFCondition FrameReader::decodeFromHere(uint32_t index, void* buffer, std::string& colorModel) {
    if (m_coding != Coding::Other) {
        OFCondition checked = findStart(index);
        if (checked.good()) checked = checkFragment(*m_fragments[m_nextFragment]);
        if (checked.bad()) return checked;
    } else if (index != m_nextIndex) {
        m_nextFragment = 0;
    }
    FragmentView view(m_fragments);
    return decode(view, index, m_nextFragment, buffer, colorModel);
}

/// Gives the decoder an image of this one frame in one fragment.
OFCondition FrameReader::decodeAlone(uint32_t index, void* buffer, std::string& colorModel) {
    OFCondition result = findStart(index);
    if (result.bad()) return result;
    const uint32_t first = m_nextFragment, end = endOfFrame(index, first);
    DcmPixelItem table(DCM_PixelItemTag), joined(DCM_PixelItemTag);
    std::array<DcmPixelItem*, 2> alone{&table, m_fragments[first]};
    if (end - first > 1) {
        result = join(first, end, joined);
        alone[1] = &joined;
    }
    m_nextFragment = end;
    FragmentView view(alone);
    Uint32 start = 1;
    if (result.good()) result = checkFragment(*alone[1]);
    if (result.bad()) return result;
    return decode(view, 0, start, buffer, colorModel);
}

OFCondition FrameReader::decode(DcmPixelSequence& fragments, uint32_t index, uint32_t& fragment, void* buffer,
                                std::string& colorModel) {
    DcmItem& attributes = m_narrow ? narrowAttributes() : m_attributes;
    const OFCondition result = DcmCodecList::decodeFrame(m_syntax, m_parameter, &fragments, &attributes,
                                                         index, fragment, buffer, m_bufferSize, colorModel);
    if (result.good() && m_narrow) widen(static_cast<uint8_t*>(buffer), m_shape.pixels() * m_shape.samples);
    return result;
}

/// Under 16 bits allocated the decoders would still deliver samples of up to 8 bits as bytes, or refuse them.
DcmItem& FrameReader::narrowAttributes() {
    if (m_narrowAttributes == nullptr) {
        m_narrowAttributes = std::make_unique<DcmItem>(m_attributes);
        m_narrowAttributes->putAndInsertUint16(DCM_BitsAllocated, 8);
        m_narrowAttributes->putAndInsertUint16(DCM_BitsStored, 8);
        m_narrowAttributes->putAndInsertUint16(DCM_HighBit, 7);
    }
    return *m_narrowAttributes;
}

OFCondition FrameReader::join(uint32_t first, uint32_t end, DcmPixelItem& joined) {
    uint64_t length = 0;
    for (uint32_t i = first; i < end; ++i)
        length += m_fragments[i]->getLength();
    if (length > objectlimits::kFrameBytes)
        return frameError("the " + std::to_string(length) +
                          " bytes of a compressed frame exceed the limit of " +
                          std::to_string(objectlimits::kFrameBytes));
    Uint8* target = nullptr;
    OFCondition result = joined.createUint8Array(static_cast<Uint32>(length), target);
    for (uint32_t i = first; i < end && result.good(); ++i) {
        const uint32_t size = m_fragments[i]->getLength();
        if (size != 0) result = m_fragments[i]->getPartialValue(target, 0, size);
        target += size;
    }
    return result;
}

RefusalText decodingFailure(const OFCondition& condition, E_TransferSyntax xfer) {
    if (condition != EC_CannotChangeRepresentation) return {condition.text(), ErrorClass::decode};
    const std::string name = DcmXfer(xfer).getXferName();
    if (!DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit))
        return RefusalText("there is no decoder for " + name, ErrorClass::unsupported);
    // A decoder says the same of a frame that is not what the object promises.
    return RefusalText("the " + name + " frame and the object's attributes contradict each other",
                       ErrorClass::decode);
}
