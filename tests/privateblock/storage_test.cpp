// What the keys hold survives being saved and read back.
#include "privateblock/privatedictionary.h"
#include "tests/shared/testobject.h"

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

}  // namespace

TEST_P(Storage, ListsOfTwentyThousandFrames) {
    constexpr int kFrames = 20000;
    DcmFileFormat file;
    PBItem block(*file.getDataset());
    for (unsigned short key : {0x11, 0x12, 0x1D})
        ASSERT_TRUE(block.putAndInsertPBString(key, numbers(kFrames).c_str()).good());
    std::vector<Sint32> values(kFrames, -5);
    std::vector<Uint16> bits(kFrames, 12);
    for (unsigned short key : {0x13, 0x14}) {
        auto list = PBItem::createNewDicomElement(block.getTag(key));
        ASSERT_EQ(list->ident(), EVR_SL);
        ASSERT_TRUE(list->putSint32Array(values.data(), kFrames).good());
        ASSERT_TRUE(block.insertPB(list.release(), true).good());
    }
    ASSERT_TRUE(block.putAndInsertPBUint16Array(0x1E, bits.data(), kFrames).good());

    DcmDataset& dataset = saveAndLoad(file);
    PBItem loaded(dataset);
    for (unsigned short key : {0x11, 0x12, 0x1D})
        EXPECT_EQ(textAt(dataset, 0x1000 | key), numbers(kFrames));
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

INSTANTIATE_TEST_SUITE_P(LittleEndian, Storage,
                         testing::Values(EXS_LittleEndianExplicit, EXS_LittleEndianImplicit));
