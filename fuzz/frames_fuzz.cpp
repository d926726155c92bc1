#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/oflog/oflog.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "codecs/codecregistry.h"
#include "fuzz/framesinput.h"
#include "fuzz/require.h"
#include "imgproc/framereader.h"

/// One family of decoders (CODING) behind the frame reader and its checks: fragments of any content, or an
/// image that is coded first and must come back as it was.
namespace {

constexpr uint8_t kGuard = 0xA7;
constexpr size_t kGuardBytes = 4096;

DcmPixelData& insertFragments(DcmDataset& dataset, E_TransferSyntax syntax, const FramesInput& input) {
    auto* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    for (const auto fragment : input.fragments) {
        auto* item = new DcmPixelItem(DCM_PixelItemTag);
        std::vector<uint8_t> even(fragment.begin(), fragment.end());
        if (even.size() % 2 != 0) even.push_back(0);
        if (!even.empty()) item->putUint8Array(even.data(), even.size());
        sequence->insert(item);
    }
    auto* element = new DcmPixelData(DCM_PixelData);
    element->putOriginalRepresentation(syntax, nullptr, sequence);
    REQUIRE(dataset.insert(element, OFTrue).good());
    return *element;
}

void describe(DcmDataset& dataset, const FramesInput& input) {
    dataset.putAndInsertUint16(DCM_SamplesPerPixel, input.samples);
    dataset.putAndInsertString(DCM_PhotometricInterpretation, input.photometric);
    if (input.samples == 3) dataset.putAndInsertUint16(DCM_PlanarConfiguration, input.planar);
    dataset.putAndInsertString(DCM_NumberOfFrames, std::to_string(input.frames).c_str());
    dataset.putAndInsertUint16(DCM_Rows, input.rows);
    dataset.putAndInsertUint16(DCM_Columns, input.columns);
    dataset.putAndInsertUint16(DCM_BitsAllocated, input.allocated);
    dataset.putAndInsertUint16(DCM_BitsStored, input.stored);
    dataset.putAndInsertUint16(DCM_HighBit, static_cast<Uint16>(input.stored - 1));
    dataset.putAndInsertUint16(DCM_PixelRepresentation, input.isSigned);
}

/// Reads a frame twice into buffers of different content: a frame that was decoded is the same both times,
/// and nothing behind the buffer has changed.
void readFrame(FrameReader& one, FrameReader& other, uint32_t frame, uint32_t size) {
    std::array<std::vector<uint8_t>, 2> buffers;
    std::array<std::string, 2> models;
    std::array<bool, 2> good{};
    for (size_t i = 0; i < 2; ++i) {
        buffers[i].assign(size, i == 0 ? 0x00 : 0xE7);
        buffers[i].resize(size + kGuardBytes, kGuard);
        FrameReader& reader = i == 0 ? one : other;
        good[i] = reader.read(frame, buffers[i].data(), models[i]).good();
        for (size_t k = size; k < buffers[i].size(); ++k)
            REQUIRE(buffers[i][k] == kGuard, "byte %zu of frame %u", k, frame);
    }
    REQUIRE(good[0] == good[1]);
    REQUIRE(!good[0] || (buffers[0] == buffers[1] && models[0] == models[1]));
}

void decodeFragments(const FramesInput& input) {
    DcmFileFormat file;
    DcmDataset& dataset = *file.getDataset();
    file.getMetaInfo()->putAndInsertString(DCM_TransferSyntaxUID, input.metaSyntax);
    describe(dataset, input);
    DcmPixelData& element = insertFragments(dataset, input.syntax, input);
    FrameReader one(dataset, element), other(dataset, element);
    REQUIRE(one.compressed());
    uint32_t size = one.frameSize();
    size += size % 2;
    if (size == 0 || size > 1 << 24) return;
    one.setBufferSize(size);
    other.setBufferSize(size);
    for (uint32_t frame = 0; frame < std::min<uint32_t>(one.frameCount(), 4); ++frame)
        readFrame(one, other, frame, size);
}

/// The samples pixel by pixel where they lay by plane.
std::vector<uint8_t> interleaved(const FramesInput& input) {
    if (input.samples == 1 || input.planar == 0) return input.pixels;
    std::vector<uint8_t> pixels(input.pixels.size());
    const size_t bytes = input.allocated / 8, plane = size_t{input.columns} * input.rows;
    for (size_t i = 0; i < pixels.size() / bytes; ++i) {
        const size_t frame = i / (3 * plane), pixel = i / 3 % plane, sample = i % 3;
        const size_t from = (frame * 3 + sample) * plane + pixel;
        std::memcpy(&pixels[i * bytes], &input.pixels[from * bytes], bytes);
    }
    return pixels;
}

/// Codes an image without loss, where the family has an encoder, and reads it back.
void thereAndBack(const FramesInput& input) {
    if (input.roundTrip == EXS_Unknown || input.pixels.empty()) return;
    DcmDataset dataset;
    describe(dataset, input);
    std::vector<Uint16> words((input.pixels.size() + 1) / 2);
    std::memcpy(words.data(), input.pixels.data(), input.pixels.size());
    REQUIRE(dataset.putAndInsertUint16Array(DCM_PixelData, words.data(), words.size()).good());
    std::unique_ptr<DcmRepresentationParameter> parameter(
        CodecRegistry::getRepresentationParameter(dataset, input.roundTrip));
    const OFCondition coded = dataset.chooseRepresentation(input.roundTrip, parameter.get());
    if (coded.bad()) return;
    dataset.removeAllButCurrentRepresentations();
    DcmElement* element = nullptr;
    REQUIRE(dataset.findAndGetElement(DCM_PixelData, element).good());
    FrameReader reader(dataset, *element);
    const size_t frameBytes = input.pixels.size() / static_cast<size_t>(input.frames);
    REQUIRE(reader.compressed());
    if (reader.frameSize() == 0) return;  // a colour model of which the toolkit does not know the samples
    REQUIRE(reader.frameSize() == frameBytes, "%u", reader.frameSize());
    Uint16 planar = 0;
    dataset.findAndGetUint16(DCM_PlanarConfiguration, planar);
    const std::vector<uint8_t> expected = planar == 0 ? interleaved(input) : input.pixels;
    std::vector<uint8_t> buffer(frameBytes + frameBytes % 2);
    reader.setBufferSize(static_cast<uint32_t>(buffer.size()));
    for (int frame = 0; frame < input.frames; ++frame) {
        std::string model;
        const OFCondition read = reader.read(static_cast<uint32_t>(frame), buffer.data(), model);
        REQUIRE(read.good(), "%s", read.text());
        REQUIRE(std::memcmp(buffer.data(), expected.data() + frame * frameBytes, frameBytes) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CodecRegistry codecs;
    static const bool quiet = (OFLog::configure(OFLogger::OFF_LOG_LEVEL), true);
    (void)quiet;
    const FramesInput input(Coding::CODING, data, size);
    input.coded ? decodeFragments(input) : thereAndBack(input);
    return 0;
}
