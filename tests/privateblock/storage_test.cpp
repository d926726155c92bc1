// What the keys hold survives being saved and read back.
#include <gtest/gtest.h>

#include <vector>

#include "privateblock/PBItem.h"
#include "privateblock/privatedictionary.h"
#include "tests/privateblock/privateobject.h"

namespace {

std::string numbers(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i)
        text.append(i > 1 ? "\\" : "").append(std::to_string(i));
    return text;
}

class Storage : public testing::TestWithParam<E_TransferSyntax> {
protected:
    // Elements whose explicit length field is too short are stored as UN by the toolkit; programs read them
    // back with this switch on.
    Storage() : m_before(dcmEnableUnknownVRConversion.get()) { dcmEnableUnknownVRConversion.set(OFTrue); }
    ~Storage() override { dcmEnableUnknownVRConversion.set(m_before); }

    DcmDataset& saveAndLoad(DcmFileFormat& file) {
        file.getDataset()->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
        file.getDataset()->putAndInsertString(DCM_SOPInstanceUID, "2.25.1");
        EXPECT_TRUE(file.saveFile((m_dir / "x.dcm").c_str(), GetParam()).good());
        EXPECT_TRUE(m_loaded.loadFile((m_dir / "x.dcm").c_str()).good());
        return *m_loaded.getDataset();
    }

private:
    bool m_before;
    TemporaryFolder m_dir;
    DcmFileFormat m_loaded;
};

std::string text(PBItem& block, unsigned short key) {
    const char* value = nullptr;
    return block.findAndGetPBString(key, value).good() && value != nullptr ? value : "-";
}

}  // namespace

TEST_P(Storage, ListsOfTwentyThousandFrames) {
    constexpr int frames = 20000;
    DcmFileFormat file;
    PBItem block(*file.getDataset());
    for (unsigned short key : {0x11, 0x12, 0x1D})
        ASSERT_TRUE(block.putAndInsertPBString(key, numbers(frames).c_str()).good());
    std::vector<Sint32> values(frames, -5);
    std::vector<Uint16> bits(frames, 12);
    for (unsigned short key : {0x13, 0x14}) {
        auto list = PBItem::createNewDicomElement(block.getTag(key));
        ASSERT_EQ(list->ident(), EVR_SL);
        ASSERT_TRUE(list->putSint32Array(values.data(), frames).good());
        ASSERT_TRUE(block.insertPB(list.release(), true).good());
    }
    ASSERT_TRUE(block.putAndInsertPBUint16Array(0x1E, bits.data(), frames).good());

    PBItem loaded(saveAndLoad(file));
    for (unsigned short key : {0x11, 0x12, 0x1D})
        EXPECT_EQ(text(loaded, key), numbers(frames));
    for (unsigned short key : {0x13, 0x14}) {
        DcmElement* element = nullptr;
        Sint32* stored = nullptr;
        ASSERT_TRUE(loaded.findAndGetPBElement(key, element).good());
        ASSERT_TRUE(element->getSint32Array(stored).good());
        EXPECT_EQ(std::vector<Sint32>(stored, stored + element->getLength() / 4), values);
    }
    DcmElement* element = nullptr;
    Uint16* stored = nullptr;
    ASSERT_TRUE(loaded.findAndGetPBElement(0x1E, element).good());
    ASSERT_TRUE(element->getUint16Array(stored).good());
    EXPECT_EQ(std::vector<Uint16>(stored, stored + element->getLength() / 2), bits);
}

TEST_P(Storage, EveryKindOfKey) {
    DcmFileFormat file;
    PBItem block(*file.getDataset());
    // Backslashes of the fingerprint are text; it starts with blanks on purpose.
    const std::string print = "  a\\b%s\r\nc";
    const Uint8 bitmap[] = {0x01, 0xFF, 0x00};
    ASSERT_TRUE(block.putAndInsertPBString(0x3A, print.c_str()).good());
    ASSERT_TRUE(block.putAndInsertPBString(0x45, "PARTIAL").good());
    ASSERT_TRUE(block.putAndInsertPBString(0x47, "20240131").good());
    ASSERT_TRUE(block.putAndInsertPBString(0x48, "235959").good());
    ASSERT_TRUE(block.putAndInsertPBString(0x63, "label").good());
    for (unsigned short key : {0x46, 0x49, 0x4A, 0x62})
        ASSERT_TRUE(block.insertPBEmptyElement(key).good());
    for (long index : {0, 1}) {
        DcmItem* item = nullptr;
        ASSERT_TRUE(block.findOrCreatePBSequenceItem(0x71, item, index).good());
        PBItem overlay(*item);
        ASSERT_TRUE(overlay.putAndInsertPBString(0x72, "NONE").good());
        ASSERT_TRUE(overlay.putAndInsertPBUint8Array(0x73, bitmap, index == 0 ? 3 : 0).good());
    }
    DcmDataset& dataset = saveAndLoad(file);
    PBItem loaded(dataset);
    EXPECT_EQ(text(loaded, 0x3A), print);
    EXPECT_EQ(text(loaded, 0x45), "PARTIAL");
    EXPECT_EQ(text(loaded, 0x63), "label");
    DcmElement* element = nullptr;
    ASSERT_TRUE(loaded.findAndGetPBElement(0x47, element).good());
    EXPECT_EQ(element->ident(), EVR_DA);
    ASSERT_TRUE(loaded.findAndGetPBElement(0x48, element).good());
    EXPECT_EQ(element->ident(), EVR_TM);
    DcmSequenceOfItems* sequence = nullptr;
    for (unsigned short key : {0x46, 0x49, 0x4A, 0x62}) {
        ASSERT_TRUE(loaded.findAndGetPBSequence(key, sequence).good());
        EXPECT_EQ(sequence->card(), 0U);
    }
    ASSERT_TRUE(loaded.findAndGetPBSequence(0x71, sequence).good());
    ASSERT_EQ(sequence->card(), 2U);
    const Uint8* bytes = nullptr;
    unsigned long count = 0;
    const DcmTagKey bitmapTag(0xF215, 0x1073);
    ASSERT_TRUE(sequence->getItem(0)->findAndGetUint8Array(bitmapTag, bytes, &count).good());
    EXPECT_EQ(std::vector<Uint8>(bytes, bytes + count), (std::vector<Uint8>{0x01, 0xFF, 0x00, 0x00}));
    EXPECT_EQ(textAt(*sequence->getItem(1), 0x1072), "NONE");
    EXPECT_TRUE(sequence->getItem(1)->tagExists(bitmapTag));
    EXPECT_FALSE(sequence->getItem(1)->tagExistsWithValue(bitmapTag));
    EXPECT_EQ(textAt(*sequence->getItem(1), 0x0010), "PB group A") << "an item has a block of its own";
}

INSTANTIATE_TEST_SUITE_P(LittleEndian, Storage,
                         testing::Values(EXS_LittleEndianExplicit, EXS_LittleEndianImplicit));
