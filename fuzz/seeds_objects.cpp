// Objects: of every transfer syntax and colour model, and of every kind that is treated on its own.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcrlerp.h>
#include <dcmtk/dcmjpeg/djrplol.h>
#include <dcmtk/dcmjpeg/djrploss.h>
#include <dcmtk/dcmjpls/djrparam.h>

#include <functional>
#include <iterator>
#include <memory>

#include "fuzz/memoryfolder.h"
#include "fuzz/seedwriter.h"
#include "privateblock/PBItem.h"
#include "privateblock/privatedictionary.h"
#include "tests/shared/codestreams.h"
#include "tools/phantom/phantomobject.h"

namespace {

SeedBytes fileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// An object for conversions with several options, and for a dump and a query.
void writeObject(const SeedWriter& writer, const std::string& name, const SeedBytes& object) {
    constexpr char kEverything = 8, kDump = 2 | 1, kEscaped = 4, kNoCache = 16, kKeepPrivate = 32,
                   kTwice = 64;
    const auto options = [](int flags, int mask, int frame) {
        return SeedBytes{static_cast<uint8_t>(flags), static_cast<uint8_t>(mask), static_cast<uint8_t>(frame),
                         0, 0};
    };
    const SeedBytes tags = seedOf(std::string_view("\x08\0\x60\0\x10\0\x10\0", 8));
    writer.write("object_fuzz", name, options(kEverything | kKeepPrivate, 3, 0) + object);
    writer.write("object_fuzz", name + "-frame", options(kNoCache, 1, 1) + object);
    writer.write("listing_fuzz", name, options(kDump | kEscaped, 0, 0) + object);
    SeedBytes query = options(2 | kTwice, 0, 0);
    query[4] = 2 | 1 << 3;
    writer.write("listing_fuzz", name + "-query", query + tags + object);
}

struct Image {
    const char* name;
    ImageShape shape;
};

const Image images[] = {
    {"grey8", {.rows = 8, .columns = 12}},
    {"frames", {.rows = 6, .columns = 10, .frames = 3}},
    {"inverted12",
     {.rows = 8, .columns = 12, .allocated = 16, .stored = 12, .highBit = 11, .photometric = "MONOCHROME1"}},
    {"signed16",
     {.rows = 8, .columns = 12, .allocated = 16, .stored = 16, .highBit = 15, .representation = 1}},
    {"rgb", {.rows = 8, .columns = 8, .samples = 3, .photometric = "RGB", .planar = 0}},
    {"rgbplanes", {.rows = 8, .columns = 8, .samples = 3, .photometric = "RGB", .planar = 1}},
    {"ybr", {.rows = 8, .columns = 8, .samples = 3, .photometric = "YBR_FULL", .planar = 0}},
};

SeedBytes samples(size_t count, int bits) {
    SeedBytes bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(i * 37 + i / 5);
    // High bytes keep to the bits that are stored.
    for (size_t i = 1; bits > 8 && i < count; i += 2)
        bytes[i] = static_cast<uint8_t>(bytes[i] & ((1 << (bits - 8)) - 1));
    return bytes;
}

void describe(TestObject& object, const Image& image) {
    const ImageShape& shape = image.shape;
    object.describe(shape);
    object.text(DCM_Modality, "CT");
    object.text(DCM_PatientName, "A^B");
    object.text(DCM_PixelSpacing, "0.5\\0.25");
    object.text(DCM_WindowCenter, "40\\50");
    object.text(DCM_WindowWidth, "400\\300");
    object.pixels(samples(size_t{shape.rows} * shape.columns * shape.samples * shape.allocated / 8 *
                              static_cast<size_t>(shape.frames),
                          shape.stored));
}

void writeTransferSyntaxes(const SeedWriter& writer, const Image& image) {
    struct Syntax {
        const char* name;
        E_TransferSyntax xfer;
        std::unique_ptr<DcmRepresentationParameter> parameter;
    };
    const Syntax syntaxes[] = {
        {"explicit", EXS_LittleEndianExplicit, nullptr},
        {"implicit", EXS_LittleEndianImplicit, nullptr},
        {"big", EXS_BigEndianExplicit, nullptr},
        {"deflated", EXS_DeflatedLittleEndianExplicit, nullptr},
        {"rle", EXS_RLELossless, std::make_unique<DcmRLERepresentationParameter>()},
        {"jpeg1", EXS_JPEGProcess1, std::make_unique<DJ_RPLossy>(90)},
        {"jpeg4", EXS_JPEGProcess2_4, std::make_unique<DJ_RPLossy>(90)},
        {"jpeg14", EXS_JPEGProcess14, std::make_unique<DJ_RPLossless>(6, 0)},
        {"jpegsv1", EXS_JPEGProcess14SV1, std::make_unique<DJ_RPLossless>(1, 0)},
        {"jpegls", EXS_JPEGLSLossless, std::make_unique<DJLSRepresentationParameter>(0, OFTrue)},
        {"jpeglslossy", EXS_JPEGLSLossy, std::make_unique<DJLSRepresentationParameter>(2, OFFalse)},
        {"j2k", EXS_JPEG2000LosslessOnly, std::make_unique<D2RepresentationParameter>()},
        {"j2klossy", EXS_JPEG2000, std::make_unique<D2RepresentationParameter>(0.2, 1, false)},
    };
    for (const Syntax& syntax : syntaxes) {
        TestObject object;
        describe(object, image);
        if (object.dataset().chooseRepresentation(syntax.xfer, syntax.parameter.get()).bad()) continue;
        object.dataset().removeAllButCurrentRepresentations();
        writeObject(writer, std::string(image.name) + "-" + syntax.name, fileBytes(object.save(syntax.xfer)));
    }
}

void writeSpecial(const SeedWriter& writer, const char* name, const char* sopClass,
                  const std::function<void(TestObject&)>& fill) {
    TestObject object(sopClass);
    fill(object);
    writeObject(writer, name, fileBytes(object.save(EXS_LittleEndianExplicit)));
}

void palette(TestObject& object, bool segmented) {
    describe(object, {"", {.rows = 4, .columns = 8, .photometric = "PALETTE COLOR"}});
    for (Uint16 channel = 0; channel < 3; ++channel) {
        object.words(0x0028, static_cast<Uint16>(0x1101 + channel), EVR_US, {256, 0, 16});
        if (segmented) {
            // A discrete run, a linear one, and the first once more.
            object.words(0x0028, static_cast<Uint16>(0x1221 + channel), EVR_OW,
                         {0, 4, 1, 2, 3, 4, 1, 248, 65535, 2, 1, 0, 0});
        } else {
            std::vector<uint16_t> entries(256);
            for (size_t i = 0; i < entries.size(); ++i)
                entries[i] = static_cast<uint16_t>(i * 256 + channel);
            object.words(0x0028, static_cast<Uint16>(0x1201 + channel), EVR_OW, entries);
        }
    }
}

void content(TestObject& object) {
    PBItem block(object.dataset());
    block.putAndInsertPBString(0x45, "PARTIAL");
    block.putAndInsertPBString(0x47, "20200102");
    block.putAndInsertPBString(0x48, "101112");
    block.putAndInsertPBString(0x3A, "fingerprint");
    DcmItem* item = nullptr;
    for (const unsigned short key : {0x46, 0x49, 0x4A, 0x62}) {
        if (block.findOrCreatePBSequenceItem(key, item, -2).bad()) continue;
        item->putAndInsertString(DCM_ReferencedSOPClassUID, UID_CTImageStorage);
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, "1.2.3");
        item->putAndInsertString(DCM_SeriesInstanceUID, "1.2.4");
        PBItem(*item).putAndInsertPBString(0x47, "20200103");
        PBItem(*item).putAndInsertPBString(0x45, "PARTIAL");
    }
}

void ultrasound(TestObject& object) {
    describe(object, images[0]);
    DcmItem* region = nullptr;
    object.dataset().findOrCreateSequenceItem(DCM_SequenceOfUltrasoundRegions, region, 0);
    region->putAndInsertUint16(DCM_PhysicalUnitsXDirection, 3);
    region->putAndInsertUint16(DCM_PhysicalUnitsYDirection, 3);
    region->putAndInsertFloat64(DCM_PhysicalDeltaX, 0.5);
    region->putAndInsertFloat64(DCM_PhysicalDeltaY, 0.25);
}

void overlays(TestObject& object) {
    describe(object, {"", {.rows = 4, .columns = 8, .allocated = 16, .stored = 12, .highBit = 11}});
    object.overlay(0x6000, 16, 12);
    object.overlay(0x6002, 1, 0, 4, 8);
    object.bytes(0x6002, 0x3000, EVR_OB, {1, 2, 3, 4});
}

void writeSpecials(const SeedWriter& writer) {
    writeSpecial(writer, "palette", UID_SecondaryCaptureImageStorage, [](auto& o) { palette(o, false); });
    writeSpecial(writer, "segmented", UID_SecondaryCaptureImageStorage, [](auto& o) { palette(o, true); });
    writeSpecial(writer, "content", kContentClass, content);
    writeSpecial(writer, "ultrasound", UID_UltrasoundImageStorage, ultrasound);
    writeSpecial(writer, "overlays", UID_SecondaryCaptureImageStorage, overlays);
    writeSpecial(writer, "pdf", UID_EncapsulatedPDFStorage, [](TestObject& object) {
        object.bytes(0x0042, 0x0011, EVR_OB, seedOf("%PDF-1.4\nA small document\n"));
    });
    writeSpecial(writer, "subsampled", UID_SecondaryCaptureImageStorage, [](TestObject& object) {
        object.describe({.rows = 4, .columns = 8, .samples = 3, .photometric = "YBR_FULL_422", .planar = 0});
        object.pixels(samples(64, 8));
    });
    writeSpecial(writer, "onebit", UID_SecondaryCaptureImageStorage, [](TestObject& object) {
        object.describe({.rows = 8, .columns = 16, .allocated = 1, .stored = 1, .highBit = 0});
        object.pixels(samples(16, 8));
    });
    writeSpecial(writer, "private", UID_SecondaryCaptureImageStorage, [](TestObject& object) {
        describe(object, images[0]);
        putText(object.dataset(), 0x00BA, "Harbourscope");
        putText(object.dataset(), 0xBA11, "40\\80");
        object.dataset().putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "SOMEBODY");
        object.dataset().putAndInsertString(DcmTag(0x0009, 0x1001, DcmVR(EVR_LO)), "kept");
    });
    const MemoryFolder folder;
    writePhantom(folder / "enhanced.dcm", {2, 8});
    writeObject(writer, "enhanced", fileBytes(folder / "enhanced.dcm"));
    folder.empty();
}

}  // namespace

void writeObjectSeeds(const SeedWriter& writer) {
    registerPrivateDictionary();
    const Encoders encoders;
    for (const Image& image : images)
        writeTransferSyntaxes(writer, image);
    writeSpecials(writer);
}

void writePrivateSeeds(const SeedWriter& writer) {
    registerPrivateDictionary();
    const auto write = [&writer](const char* name, DcmDataset& dataset, const SeedBytes& script) {
        std::vector<uint8_t> buffer(1 << 16);
        DcmOutputBufferStream stream(buffer.data(), static_cast<offile_off_t>(buffer.size()));
        dataset.transferInit();
        dataset.write(stream, EXS_LittleEndianExplicit, EET_UndefinedLength, nullptr);
        dataset.transferEnd();
        void* start = nullptr;
        offile_off_t length = 0;
        stream.flushBuffer(start, length);
        const auto* bytes = static_cast<const uint8_t*>(start);
        writer.write("privateblock_fuzz", name, script + std::span(bytes, static_cast<size_t>(length)));
    };
    DcmDataset old;
    putText(old, 0x00BA, "Harbourscope");
    putText(old, 0x00DA, "Harbourscope");
    for (const Uint16 element : {0xBA11, 0xBA12, 0xBAFF, 0xDA52, 0xDA01})
        putText(old, element, "text");
    DcmItem* item = nullptr;
    old.findOrCreateSequenceItem(DcmTag(0xF215, 0xDA51, DcmVR(EVR_SQ)), item, -2);
    putText(*item, 0xDA52, "NONE");
    write("old", old, {0});
    DcmDataset taken;
    putText(taken, 0x0010, "SOMEBODY ELSE");
    putText(taken, 0x1011, "theirs");
    putText(taken, 0x0011, "PB group A");
    putText(taken, 0x1111, "ours");
    write("taken", taken, {2, 0, 0x12, 2, 'a', 'b', 0, 0, 0, 3, 0x71, 0, 1, 0x72, 0, 0, 0});
}
