#include "tests/shared/codestreams.h"

#include <dcmtk/dcmdata/dcrleerg.h>
#include <dcmtk/dcmjpls/djencode.h>

#include <cstring>

#include "codecs/d2jpeg2000.h"

Encoders::Encoders() {
    DcmRLEEncoderRegistration::registerCodecs();
    DJLSEncoderRegistration::registerCodecs();
}

Encoders::~Encoders() {
    DJLSEncoderRegistration::cleanup();
    DcmRLEEncoderRegistration::cleanup();
}

Bytes TestImage::frame(int index) const {
    const auto begin = pixels.begin() + static_cast<ptrdiff_t>(index * frameBytes());
    return Bytes(begin, begin + static_cast<ptrdiff_t>(frameBytes()));
}

void TestImage::fill() {
    pixels.assign(frameBytes() * frames, 0);
    const uint32_t range = 1U << stored;
    const size_t count = pixels.size() * 8 / allocated;
    for (size_t i = 0; i < count; ++i) {
        const auto pattern = static_cast<uint32_t>(i * 37 + (i / 7) * i + i / (frameBytes() + 1) * 11);
        int value = static_cast<int>(i == 0 ? range - 1 : i == 1 ? 0 : pattern % range);
        if (representation == 1) value -= static_cast<int>(range / 2);
        const auto cell = static_cast<uint16_t>(value);
        std::memcpy(&pixels[i * allocated / 8], &cell, allocated / 8);
    }
}

std::unique_ptr<DcmDataset> TestImage::describe() const {
    auto dataset = std::make_unique<DcmDataset>();
    ::describe(*dataset, *this);
    return dataset;
}

std::unique_ptr<DcmDataset> TestImage::dataset() const {
    auto dataset = describe();
    putPixels(*dataset, pixels);
    return dataset;
}

void compress(DcmDataset& dataset, E_TransferSyntax xfer, const DcmRepresentationParameter* parameter) {
    const OFCondition result = dataset.chooseRepresentation(xfer, parameter);
    ASSERT_TRUE(result.good()) << result.text();
    dataset.removeAllButCurrentRepresentations();
}

std::vector<Bytes> fragmentsOf(DcmDataset& dataset) {
    DcmPixelSequence* sequence = nullptr;
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixelDataOf(dataset).getCurrentRepresentationKey(xfer, parameter);
    std::vector<Bytes> fragments;
    if (pixelDataOf(dataset).getEncapsulatedRepresentation(xfer, parameter, sequence).bad()) return fragments;
    for (unsigned long i = 0; i < sequence->card(); ++i) {
        DcmPixelItem* item = nullptr;
        Uint8* value = nullptr;
        sequence->getItem(item, i);
        if (item->getLength() != 0) item->getUint8Array(value);
        fragments.emplace_back(value, value + item->getLength());
    }
    return fragments;
}

void putFragments(DcmDataset& dataset, const std::vector<Bytes>& fragments, E_TransferSyntax xfer) {
    auto* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    for (const Bytes& fragment : fragments) {
        auto* item = new DcmPixelItem(DCM_PixelItemTag);
        if (!fragment.empty()) item->putUint8Array(fragment.data(), fragment.size());
        sequence->insert(item);
    }
    auto* element = new DcmPixelData(DCM_PixelData);
    element->putOriginalRepresentation(xfer, nullptr, sequence);
    dataset.insert(element, true);
}

std::vector<Bytes> codestreamsOf(const TestImage& image) {
    auto dataset = image.dataset();
    compress(*dataset, EXS_JPEG2000LosslessOnly);
    std::vector<Bytes> fragments = fragmentsOf(*dataset);
    fragments.erase(fragments.begin());
    return fragments;
}

Decoded decodeFrame(DcmDataset& dataset, uint32_t frame, size_t frameBytes, Uint32 startFragment) {
    Decoded result;
    result.pixels.resize((frameBytes + 1) / 2 * 2);
    OFString colorModel;
    result.nextFragment = startFragment;
    result.condition =
        pixelDataOf(dataset).getUncompressedFrame(&dataset, frame, result.nextFragment, result.pixels.data(),
                                                  static_cast<Uint32>(result.pixels.size()), colorModel);
    result.pixels.resize(frameBytes);
    result.colorModel = colorModel.c_str();
    return result;
}
