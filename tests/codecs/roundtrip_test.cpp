#include <dcmtk/dcmdata/dccodec.h>

#include <cmath>
#include <cstring>

#include "codecs/codecregistry.h"
#include "tests/shared/codestreams.h"

namespace {

struct Case {
    const char* name;
    TestImage image;
    unsigned precision;   ///< expected in the codestream
    const char* coded;    ///< photometric interpretation of the compressed object
    const char* decoded;  ///< colour model of the decoded frames
};

class J2kRoundTrip : public testing::TestWithParam<Case> {
protected:
    CodecRegistry m_registry;
};

TestImage grey(Uint16 allocated, Uint16 stored, bool isSigned, int frames = 1) {
    TestImage image{{.rows = 24, .columns = 32, .allocated = allocated, .stored = stored}, {}};
    image.representation = isSigned;
    image.frames = frames;
    return image;
}

TestImage colour(Uint16 allocated, int planar, const char* photometric, int frames = 1) {
    TestImage image = grey(allocated, allocated, false, frames);
    image.rows = 17;  // an odd number of bytes a frame
    image.columns = 19;
    image.samples = 3;
    image.photometric = photometric;
    image.planar = planar;
    return image;
}

const Case cases[] = {
    {"OneBit", grey(8, 1, false), 1, "MONOCHROME2", "MONOCHROME2"},
    {"EightBits", grey(8, 8, false), 8, "MONOCHROME2", "MONOCHROME2"},
    {"SevenBitsSigned", grey(8, 7, true), 7, "MONOCHROME2", "MONOCHROME2"},
    {"TenBitsThreeFrames", grey(16, 10, false, 3), 10, "MONOCHROME2", "MONOCHROME2"},
    {"TwelveBitsSigned", grey(16, 12, true), 12, "MONOCHROME2", "MONOCHROME2"},
    {"SixteenBits", grey(16, 16, false), 16, "MONOCHROME2", "MONOCHROME2"},
    {"SixteenBitsSigned", grey(16, 16, true, 2), 16, "MONOCHROME2", "MONOCHROME2"},
    {"Rgb", colour(8, false, "RGB", 2), 8, "YBR_RCT", "RGB"},
    {"RgbPlanes", colour(8, true, "RGB", 3), 8, "YBR_RCT", "RGB"},
    {"Rgb16", colour(16, false, "RGB"), 16, "YBR_RCT", "RGB"},
    {"YbrFull", colour(8, false, "YBR_FULL"), 8, "YBR_FULL", "YBR_FULL"},
    // Named after the transform, but coded without it: the components are what the transform would restore.
    {"YbrRctWithoutTransform", colour(8, false, "YBR_RCT"), 8, "YBR_RCT", "RGB"},
    {"YbrIctWithoutTransform", colour(8, true, "YBR_ICT"), 8, "YBR_ICT", "RGB"},
};

TEST_P(J2kRoundTrip, KeepsEveryBit) {
    TestImage image = GetParam().image;
    image.fill();
    auto dataset = image.dataset();
    compress(*dataset, EXS_JPEG2000LosslessOnly);

    const std::vector<Bytes> fragments = fragmentsOf(*dataset);
    ASSERT_EQ(fragments.size(), image.frames + 1);
    EXPECT_EQ(fragments[0].size(), image.frames * 4);  // the offset table
    const uint8_t ssiz = fragments[1].at(42);          // sign and precision of the first component
    EXPECT_EQ(ssiz, (GetParam().precision - 1) | (image.representation == 1 ? 0x80U : 0U));
    EXPECT_EQ(textAt(*dataset, DCM_PhotometricInterpretation), GetParam().coded);

    // The decoder places samples as the dataset says; the compressed form of colour says interleaved.
    if (image.samples == 3)
        dataset->putAndInsertUint16(DCM_PlanarConfiguration, static_cast<Uint16>(image.planar));
    for (int frame = image.frames; frame-- > 0;) {
        const Decoded decoded = decodeFrame(*dataset, frame, image.frameBytes());
        ASSERT_TRUE(decoded.condition.good()) << decoded.condition.text();
        EXPECT_EQ(decoded.pixels, image.frame(frame)) << "frame " << frame;
        EXPECT_EQ(decoded.colorModel, GetParam().decoded);
    }
    OFString model;
    ASSERT_TRUE(pixelDataOf(*dataset).getDecompressedColorModel(dataset.get(), model).good());
    EXPECT_EQ(model, GetParam().decoded);

    DcmDataset relabelled(*dataset);  // what a stream says of itself counts more
    if (image.photometric == std::string("RGB"))
        relabelled.putAndInsertString(DCM_PhotometricInterpretation, "YBR_FULL");
    relabelled.putAndInsertUint16(DCM_PixelRepresentation, 0);
    const Decoded decoded = decodeFrame(relabelled, 0, image.frameBytes());
    EXPECT_TRUE(decoded.condition.good()) << decoded.condition.text();
    EXPECT_EQ(decoded.colorModel, GetParam().decoded);

    ASSERT_TRUE(dataset->chooseRepresentation(EXS_LittleEndianExplicit, nullptr).good());
    const Uint16* words = nullptr;
    ASSERT_TRUE(dataset->findAndGetUint16Array(DCM_PixelData, words).good());
    EXPECT_EQ(std::memcmp(words, image.pixels.data(), image.pixels.size()), 0);
    EXPECT_EQ(textAt(*dataset, DCM_PhotometricInterpretation), GetParam().decoded);
}

INSTANTIATE_TEST_SUITE_P(Images, J2kRoundTrip, testing::ValuesIn(cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(J2kEncoding, KeepsWhatLiesAboveTheStoredBits) {
    const CodecRegistry registry;
    TestImage image = grey(16, 12, false);
    image.fill();
    image.pixels[101] |= 0x80;  // an overlay bit above the twelve
    auto dataset = image.dataset();
    compress(*dataset, EXS_JPEG2000LosslessOnly);
    EXPECT_EQ(fragmentsOf(*dataset)[1].at(42), 15);
    EXPECT_EQ(decodeFrame(*dataset, 0, image.frameBytes()).pixels, image.pixels);
}

TEST(J2kEncoding, ReachesTheRateAndSaysSo) {
    const CodecRegistry registry;
    TestImage image = grey(16, 12, false, 2);
    image.rows = image.columns = 256;
    image.pixels.resize(image.frameBytes() * 2);
    for (size_t i = 0; i < image.pixels.size() / 2; ++i) {
        const size_t row = i / 256, column = i % 256;
        const auto x = static_cast<double>(column), y = static_cast<double>(row);
        const auto noise = static_cast<double>(i * 2654435761U % 97);
        const auto value = static_cast<uint16_t>(2048 + 1500 * std::sin(x / 20) * std::cos(y / 30) + noise);
        std::memcpy(&image.pixels[i * 2], &value, 2);
    }
    const auto original = static_cast<double>(image.pixels.size());
    for (const double rate : {0.1, 0.04}) {
        auto dataset = image.dataset();
        const D2RepresentationParameter parameter(rate, 0, false, "", true);
        dataset->putAndInsertString(DCM_LossyImageCompressionRatio, "1.5");  // it was lossy before
        compress(*dataset, EXS_JPEG2000, &parameter);
        double bytes = 0;
        for (const Bytes& fragment : fragmentsOf(*dataset))
            bytes += static_cast<double>(fragment.size());
        EXPECT_LE(bytes / original, rate * 1.01);
        EXPECT_GE(bytes / original, rate * 0.9);
        EXPECT_EQ(textAt(*dataset, DCM_LossyImageCompression), "01");
        EXPECT_EQ(textAt(*dataset, DCM_LossyImageCompressionMethod), "ISO_15444_1");
        const std::string ratio = textAt(*dataset, DCM_LossyImageCompressionRatio);
        EXPECT_EQ(ratio.substr(0, 4), "1.5\\");
        EXPECT_NEAR(std::stod(ratio.substr(4)), 1 / rate, 0.12 / rate);
    }
    auto dataset = image.dataset();
    const D2RepresentationParameter lossy(0.1, 0, false);
    compress(*dataset, EXS_JPEG2000LosslessOnly, &lossy);
    EXPECT_EQ(decodeFrame(*dataset, 1, image.frameBytes()).pixels, image.frame(1))
        << "a lossless syntax never loses";
}

TEST(J2kEncoding, RefusesWhatItCannotKeep) {
    const CodecRegistry registry;
    const D2RepresentationParameter lossy(0.1, 0, false);
    TestImage palette = grey(8, 8, false);
    palette.photometric = "PALETTE COLOR";
    palette.fill();
    EXPECT_TRUE(palette.dataset()->chooseRepresentation(EXS_JPEG2000, &lossy).bad());
    TestImage shortData = grey(8, 8, false, 3);
    shortData.fill();
    shortData.pixels.resize(shortData.frameBytes() * 2);
    EXPECT_TRUE(shortData.dataset()->chooseRepresentation(EXS_JPEG2000LosslessOnly, nullptr).bad());
    TestImage image = grey(8, 8, false);
    image.fill();
    for (const double rate : {0.0, -1.0, 1.5, std::nan("")}) {
        const D2RepresentationParameter parameter(rate, 0, false);
        EXPECT_TRUE(image.dataset()->chooseRepresentation(EXS_JPEG2000, &parameter).bad()) << rate;
    }
}

TEST(CodecRegistry, RegistersWhileItLives) {
    const E_TransferSyntax readable[] = {EXS_RLELossless,   EXS_JPEGProcess1,         EXS_JPEGProcess2_4,
                                         EXS_JPEGProcess14, EXS_JPEGProcess14SV1,     EXS_JPEGLSLossless,
                                         EXS_JPEGLSLossy,   EXS_JPEG2000LosslessOnly, EXS_JPEG2000};
    const E_TransferSyntax writable[] = {EXS_JPEGProcess1, EXS_JPEGProcess14SV1, EXS_JPEG2000LosslessOnly,
                                         EXS_JPEG2000};
    for (int round = 0; round < 2; ++round) {
        {
            const CodecRegistry registry;
            for (const E_TransferSyntax xfer : readable)
                EXPECT_TRUE(DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit)) << xfer;
            for (const E_TransferSyntax xfer : writable)
                EXPECT_TRUE(DcmCodecList::canChangeCoding(EXS_LittleEndianExplicit, xfer)) << xfer;
        }
        for (const E_TransferSyntax xfer : readable)
            EXPECT_FALSE(DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit)) << xfer;
    }
}

}  // namespace
