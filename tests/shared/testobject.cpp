#include "tests/shared/testobject.h"

#include <sstream>

void describe(DcmItem& item, const ImageShape& shape) {
    item.putAndInsertUint16(DCM_Rows, shape.rows);
    item.putAndInsertUint16(DCM_Columns, shape.columns);
    item.putAndInsertUint16(DCM_BitsAllocated, shape.allocated);
    item.putAndInsertUint16(DCM_BitsStored, shape.stored);
    const int highBit = shape.highBit < 0 ? shape.stored - 1 : shape.highBit;
    item.putAndInsertUint16(DCM_HighBit, static_cast<Uint16>(highBit));
    item.putAndInsertUint16(DCM_PixelRepresentation, shape.representation);
    item.putAndInsertUint16(DCM_SamplesPerPixel, shape.samples);
    item.putAndInsertString(DCM_PhotometricInterpretation, shape.photometric);
    if (shape.planar >= 0)
        item.putAndInsertUint16(DCM_PlanarConfiguration, static_cast<Uint16>(shape.planar));
    if (shape.frames > 1) item.putAndInsertString(DCM_NumberOfFrames, std::to_string(shape.frames).c_str());
}

void putPixels(DcmItem& item, Bytes values) {
    if (values.size() % 2 != 0) values.push_back(0);
    Words pairs;
    for (size_t i = 0; i < values.size(); i += 2)
        pairs.push_back(static_cast<uint16_t>(values[i] | values[i + 1] << 8));
    item.putAndInsertUint16Array(DCM_PixelData, pairs.data(), pairs.size());
}

TestObject::TestObject(const char* sopClass) : m_file(std::make_unique<DcmFileFormat>()) {
    if (sopClass != nullptr) text(DCM_SOPClassUID, sopClass);
    text(DCM_SOPInstanceUID, "2.25.1");
}

void TestObject::pixels(const Words& values) {
    dataset().putAndInsertUint16Array(DCM_PixelData, values.data(), values.size());
}

void TestObject::words(Uint16 group, Uint16 element, DcmEVR vr, const Words& values) {
    const DcmTag tag(group, element, DcmVR(vr));
    if (vr == EVR_SS) {
        const std::vector<Sint16> numbers(values.begin(), values.end());
        ASSERT_TRUE(dataset().putAndInsertSint16Array(tag, numbers.data(), numbers.size()).good());
    } else {
        ASSERT_TRUE(dataset().putAndInsertUint16Array(tag, values.data(), values.size()).good());
    }
}

void TestObject::bytes(Uint16 group, Uint16 element, DcmEVR vr, Bytes values) {
    auto object = std::make_unique<DcmOtherByteOtherWord>(DcmTag(group, element, DcmVR(vr)));
    ASSERT_TRUE(object->putUint8Array(values.data(), values.size()).good());
    ASSERT_TRUE(dataset().insert(object.get(), OFTrue).good());
    object.release();
}

void TestObject::text(const DcmTag& tag, std::string_view value) {
    dataset().putAndInsertString(tag, value.data(), static_cast<Uint32>(value.size()));
}

void TestObject::overlay(Uint16 group, Uint16 allocated, Uint16 position, Uint16 rows, Uint16 columns) {
    words(group, 0x0010, EVR_US, {rows});
    words(group, 0x0011, EVR_US, {columns});
    dataset().putAndInsertString(DcmTag(group, 0x0040, DcmVR(EVR_CS)), "G");
    words(group, 0x0050, EVR_SS, {1, 1});
    words(group, 0x0100, EVR_US, {allocated});
    words(group, 0x0102, EVR_US, {position});
}

std::string TestObject::save(E_TransferSyntax syntax, E_EncodingType lengths) {
    std::string path = m_folder / "object.dcm";
    EXPECT_TRUE(m_file->saveFile(path.c_str(), syntax, lengths).good());
    return path;
}

DcmDataset& TestObject::reload(E_TransferSyntax syntax) {
    const std::string path = save(syntax);
    m_file = std::make_unique<DcmFileFormat>();
    EXPECT_TRUE(m_file->loadFile(path.c_str()).good());
    return dataset();
}

std::string textAt(DcmItem& item, const DcmTagKey& tag) {
    OFString text;
    item.findAndGetOFStringArray(tag, text);
    return text.c_str();
}

DcmPixelData& pixelDataOf(DcmItem& dataset) {
    DcmElement* element = nullptr;
    dataset.findAndGetElement(DCM_PixelData, element);
    return dynamic_cast<DcmPixelData&>(*element);
}

void putText(DcmItem& item, Uint16 element, const char* text) {
    auto* lo = new DcmLongString(DcmTag(0xF215, element, DcmVR(EVR_LO)));
    lo->putString(text);
    ASSERT_TRUE(item.insert(lo).good());
}

std::string textAt(DcmItem& item, Uint16 element) {
    const char* value = nullptr;
    if (item.findAndGetString(DcmTagKey(0xF215, element), value).bad()) return "-";
    return value != nullptr ? value : "";
}

void putPrivate(DcmItem& item, unsigned short key, const char* value) {
    EXPECT_TRUE(PBItem(item).putAndInsertPBString(key, value).good());
}

DcmItem& newPrivateItem(DcmItem& in, unsigned short key) {
    DcmItem* item = nullptr;
    EXPECT_TRUE(PBItem(in).findOrCreatePBSequenceItem(key, item, -2).good());
    return *item;
}

std::vector<int> privateNumbers(DcmItem& item, unsigned short key) {
    const char* value = nullptr;
    PBItem(item).findAndGetPBString(key, value);
    std::vector<int> numbers;
    std::istringstream in(value != nullptr ? value : "");
    for (std::string part; std::getline(in, part, '\\');)
        numbers.push_back(std::stoi(part));
    return numbers;
}

std::vector<Bytes> storedOverlays(DcmDataset& dataset) {
    std::vector<Bytes> bitmaps;
    DcmSequenceOfItems* sequence = nullptr;
    PBItem(dataset).findAndGetPBSequence(0x71, sequence);
    for (unsigned long i = 0; sequence != nullptr && i < sequence->card(); ++i) {
        PBItem block(*sequence->getItem(i));
        const char* compression = nullptr;
        DcmElement* bitmap = nullptr;
        Uint8* values = nullptr;
        EXPECT_TRUE(block.findAndGetPBString(0x72, compression).good());
        EXPECT_STREQ(compression, "NONE");
        EXPECT_TRUE(block.findAndGetPBElement(0x73, bitmap).good());
        bitmap->getUint8Array(values);
        bitmaps.emplace_back(values, values + bitmap->getLength());
    }
    return bitmaps;
}
