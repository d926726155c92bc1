// Streams: the two coders' payloads, and coded frames as the decoders' targets read them.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcrlerp.h>
#include <dcmtk/dcmjpeg/djrplol.h>
#include <dcmtk/dcmjpeg/djrploss.h>
#include <dcmtk/dcmjpls/djrparam.h>

#include <memory>

#include "fuzz/seedwriter.h"
#include "kelt4/keltcompressor.h"
#include "keltlegacy/keltcompress.h"
#include "tests/shared/codestreams.h"
#ifdef VINTAKD_HAS_OPENJPH
#include "tests/shared/htstreams.h"
#endif

namespace {

SeedBytes ramp(size_t count) {
    SeedBytes bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(i * i / 7 + i);
    return bytes;
}

void writeCoders(const SeedWriter& writer) {
    for (uint8_t bytesPerPixel = 1; bytesPerPixel <= 3; ++bytesPerPixel) {
        const int width = 13, height = 9;
        const SeedBytes pixels = ramp(size_t{bytesPerPixel} * width * height);
        const std::string name = std::to_string(bytesPerPixel);
        dvq::kelt4::CKeltCompressor compressor(pixels.data(), bytesPerPixel, 8, width, height);
        compressor.compress(0);
        const SeedBytes payload(compressor.payload(), compressor.payload() + compressor.payloadSize());
        writer.write("kelt_decode_fuzz", "payload" + name, SeedBytes{0} + payload);
        SeedBytes chunks{1, static_cast<uint8_t>(bytesPerPixel - 1), width - 1, height - 1, payload[16]};
        writer.write("kelt_decode_fuzz", "chunks" + name, chunks + std::span(payload).subspan(18));
        SeedBytes frame{2, static_cast<uint8_t>(bytesPerPixel - 1), width - 1};
        writer.write("kelt_decode_fuzz", "frame" + name, frame + pixels);

        SeedBytes legacy(pixels.size() * 8 + 4096);
        legacy.resize(
            keltcompress(pixels.data(), 8, bytesPerPixel, width, height, legacy.data(), legacy.size()));
        writer.write("legacy_decode_fuzz", "payload" + name, SeedBytes{0} + legacy);
        SeedBytes there{1, static_cast<uint8_t>(bytesPerPixel - 1), width - 1, 10};
        writer.write("legacy_decode_fuzz", "frame" + name, there + pixels);
    }
}

/// The bytes that tell a decoder's target what the fragments are said to hold.
SeedBytes description(uint8_t kind, const TestImage& image, uint8_t model, uint8_t fragments) {
    const int bits = (image.allocated == 16 ? 1 : 0) | (image.representation == 1 ? 2 : 0) |
                     (image.planar == 1 ? 4 : 0) | (image.allocated - image.stored) * 16;
    return {kind,
            static_cast<uint8_t>(bits),
            model,
            static_cast<uint8_t>(image.columns - 1),
            static_cast<uint8_t>(image.rows - 1),
            static_cast<uint8_t>((image.frames - 1) | (fragments - 1U) << 2)};
}

struct Family {
    const char* target;
    uint8_t kind;
    E_TransferSyntax syntax;
    std::unique_ptr<DcmRepresentationParameter> parameter;
};

std::vector<Family> families() {
    std::vector<Family> all;
    const auto add = [&all](const char* target, uint8_t kind, E_TransferSyntax syntax, auto* parameter) {
        all.push_back({target, kind, syntax, std::unique_ptr<DcmRepresentationParameter>(parameter)});
    };
    add("jpeg_fuzz", 0, EXS_JPEGProcess1, new DJ_RPLossy(90));
    add("jpeg_fuzz", 2, EXS_JPEGProcess2_4, new DJ_RPLossy(90));
    add("jpeg_fuzz", 6, EXS_JPEGProcess14SV1, new DJ_RPLossless(1, 0));
    add("jpeg_fuzz", 4, EXS_JPEGProcess14, new DJ_RPLossless(6, 0));
    add("jpegls_fuzz", 0, EXS_JPEGLSLossless, new DJLSRepresentationParameter(0, OFTrue));
    add("jpegls_fuzz", 2, EXS_JPEGLSLossy, new DJLSRepresentationParameter(2, OFFalse));
    add("runlength_fuzz", 0, EXS_RLELossless, new DcmRLERepresentationParameter);
    add("jpeg2000_fuzz", 0, EXS_JPEG2000LosslessOnly, new D2RepresentationParameter);
    add("jpeg2000_fuzz", 2, EXS_JPEG2000, new D2RepresentationParameter(0.2, 2, false));
    return all;
}

void writeCoded(const SeedWriter& writer, const Family& family, const TestImage& image, uint8_t model,
                const std::string& name) {
    const auto dataset = image.dataset();
    if (dataset->chooseRepresentation(family.syntax, family.parameter.get()).bad()) return;
    dataset->removeAllButCurrentRepresentations();
    std::vector<Bytes> fragments = fragmentsOf(*dataset);
    if (fragments.size() < 2) return;
    fragments.erase(fragments.begin());
    SeedBytes seed = description(family.kind, image, model, static_cast<uint8_t>(fragments.size()));
    for (size_t i = 0; i + 1 < fragments.size(); ++i)
        seed = seed + seedOfNumber(static_cast<uint16_t>(fragments[i].size())) + fragments[i];
    writer.write(family.target, name, seed + fragments.back());
}

#ifdef VINTAKD_HAS_OPENJPH
void writeHighThroughput(const SeedWriter& writer, const TestImage& image, uint8_t model, const char* name) {
    constexpr uint8_t kLosslessOnly = 4, kLossy = 6;
    const auto write = [&](uint8_t kind, const HtCoding& coding) {
        const std::vector<Bytes> streams = htStreamsOf(image, coding);
        SeedBytes seed = description(kind, image, model, static_cast<uint8_t>(streams.size()));
        for (size_t i = 0; i + 1 < streams.size(); ++i)
            seed = seed + seedOfNumber(static_cast<uint16_t>(streams[i].size())) + streams[i];
        writer.write("jpeg2000_fuzz", std::string("ht-") + name + std::to_string(kind),
                     seed + streams.back());
    };
    write(kLosslessOnly, {.tile = 8});
    write(kLossy, {.order = "LRCP", .quantization = 0.01F});
}
#endif

}  // namespace

void writeStreamSeeds(const SeedWriter& writer) {
    writeCoders(writer);
    const Encoders encoders;
    struct Kind {
        TestImage image;
        uint8_t model;
        const char* name;
    };
    Kind kinds[] = {
        {{{.rows = 9, .columns = 13}, {}}, 0, "grey8"},
        {{{.rows = 9, .columns = 13, .frames = 3}, {}}, 0, "frames"},
        {{{.rows = 8, .columns = 12, .allocated = 16, .stored = 12}, {}}, 0, "grey12"},
        {{{.rows = 8, .columns = 12, .allocated = 16, .stored = 16, .representation = 1}, {}}, 0, "signed16"},
        {{{.rows = 16, .columns = 16, .samples = 3, .photometric = "RGB", .planar = 0}, {}}, 3, "rgb"},
        {{{.rows = 8, .columns = 9, .samples = 3, .photometric = "YBR_FULL", .planar = 1}, {}}, 4, "planes"},
    };
    for (Kind& kind : kinds) {
        kind.image.fill();
        int number = 0;
        for (const Family& family : families())
            writeCoded(writer, family, kind.image, kind.model, kind.name + std::to_string(number++));
#ifdef VINTAKD_HAS_OPENJPH
        if (kind.image.planar != 1) writeHighThroughput(writer, kind.image, kind.model, kind.name);
#endif
        writer.write("jpeg2000_fuzz", std::string("image-") + kind.name,
                     description(1, kind.image, kind.model, 1) + kind.image.pixels);
    }
}
