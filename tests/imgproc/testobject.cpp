#include "tests/imgproc/testobject.h"

#include <sstream>

#include "privateblock/PBItem.h"

TestObject::TestObject(const char* sopClass) : m_file(std::make_unique<DcmFileFormat>()) {
    if (sopClass != nullptr) text(DCM_SOPClassUID, sopClass);
    text(DCM_SOPInstanceUID, "2.25.1");
}

void TestObject::describe(const ImageShape& shape) {
    DcmDataset& object = dataset();
    object.putAndInsertUint16(DCM_Rows, shape.rows);
    object.putAndInsertUint16(DCM_Columns, shape.columns);
    object.putAndInsertUint16(DCM_BitsAllocated, shape.allocated);
    object.putAndInsertUint16(DCM_BitsStored, shape.stored);
    object.putAndInsertUint16(DCM_HighBit, shape.highBit);
    object.putAndInsertUint16(DCM_PixelRepresentation, shape.representation);
    object.putAndInsertUint16(DCM_SamplesPerPixel, shape.samples);
    text(DCM_PhotometricInterpretation, shape.photometric);
    if (shape.frames > 1) text(DCM_NumberOfFrames, std::to_string(shape.frames).c_str());
}

void TestObject::pixels(std::vector<uint8_t> values) {
    if (values.size() % 2 != 0) values.push_back(0);
    std::vector<uint16_t> pairs;
    for (size_t i = 0; i < values.size(); i += 2)
        pairs.push_back(static_cast<uint16_t>(values[i] | values[i + 1] << 8));
    pixels(pairs);
}

void TestObject::pixels(const std::vector<uint16_t>& values) {
    dataset().putAndInsertUint16Array(DCM_PixelData, values.data(), values.size());
}

void TestObject::words(Uint16 group, Uint16 element, DcmEVR vr, const std::vector<uint16_t>& values) {
    const DcmTag tag(group, element, DcmVR(vr));
    if (vr == EVR_SS) {
        const std::vector<Sint16> numbers(values.begin(), values.end());
        ASSERT_TRUE(dataset().putAndInsertSint16Array(tag, numbers.data(), numbers.size()).good());
    } else {
        ASSERT_TRUE(dataset().putAndInsertUint16Array(tag, values.data(), values.size()).good());
    }
}

void TestObject::bytes(Uint16 group, Uint16 element, DcmEVR vr, std::vector<uint8_t> values) {
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

std::vector<int> privateNumbers(DcmItem& item, unsigned short key) {
    const char* value = nullptr;
    PBItem(item).findAndGetPBString(key, value);
    std::vector<int> numbers;
    std::istringstream in(value != nullptr ? value : "");
    for (std::string part; std::getline(in, part, '\\');)
        numbers.push_back(std::stoi(part));
    return numbers;
}

std::vector<std::vector<uint8_t>> storedOverlays(DcmDataset& dataset) {
    std::vector<std::vector<uint8_t>> bitmaps;
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
