// The text listing of a data set.
#include <sstream>

#include "tests/imgproc/capturingprocess.h"

namespace {

std::string dump(DcmDataset& dataset, bool escape = false, bool dumpOnly = true) {
    CapturingProcess process(dataset, 0, {.list = true, .listOnly = dumpOnly, .escape = escape});
    std::ostringstream text;
    process.setOutputStream(&text);
    EXPECT_EQ(process.process(), 0) << process.failureCause();
    return text.str();
}

}  // namespace

TEST(Dump, ListsElementsSequencesAndItems) {
    TestObject object(nullptr);
    DcmDataset& dataset = object.dataset();
    dataset.clear();
    object.text(DCM_SpecificCharacterSet, "ISO_IR 100");
    object.text(DCM_ImageType, "DERIVED\\SECONDARY");
    object.text(DCM_PatientName, "");
    object.words(0x0028, 0x0010, EVR_US, {512});
    object.words(0x0028, 0x3006, EVR_US, {1, 2, 65535});
    dataset.putAndInsertFloat32(DCM_RecommendedDisplayFrameRateInFloat, 0.25);
    object.bytes(0x0009, 0x1001, EVR_UN, {0xAB, 0x01});
    DcmItem* item = nullptr;
    ASSERT_TRUE(dataset.findOrCreateSequenceItem(DCM_ReferencedImageSequence, item, -2).good());
    item->putAndInsertString(DCM_ReferencedSOPClassUID, "1.2.840.10008.5.1.4.1.1.2");
    ASSERT_TRUE(dataset.findOrCreateSequenceItem(DCM_ReferencedImageSequence, item, -2).good());
    const std::string expected =
        "(0008,0005) CS ISO_IR 100\n"
        "(0008,0008) CS DERIVED\\SECONDARY\n"
        "(0008,1140) SQ **start**\n"
        " (fffe,e000) na **start**\n"
        "  (0008,1150) UI 1.2.840.10008.5.1.4.1.1.2\n"
        " (fffe,e000) na **end**\n"
        " (fffe,e000) na **start**\n"
        " (fffe,e000) na **end**\n"
        "(0008,1140) SQ **end**\n"
        "(0008,9459) FL 0.25\n"
        "(0009,1001) UN ab\\01\n"
        "(0010,0010) PN \n"
        "(0028,0010) US 512\n"
        "(0028,3006) US 1\\2\\65535\n";
    EXPECT_EQ(dump(dataset), expected);
}

TEST(Dump, KeepsLinesInOnePieceWhenAsked) {
    TestObject object;
    object.dataset().clear();
    object.text(DCM_PatientComments, "a\r\nb\\c");
    EXPECT_EQ(dump(object.dataset()), "(0010,4000) LT a\r\nb\\c\n");
    EXPECT_EQ(dump(object.dataset(), true), "(0010,4000) LT a\\r\\nb\\\\c\n");
}

TEST(Dump, IndentsAtMost32Blanks) {
    TestObject object;
    DcmItem* item = &object.dataset();
    for (int depth = 0; depth < 40; ++depth)
        ASSERT_TRUE(item->findOrCreateSequenceItem(DCM_ContentSequence, item, 0).good());
    item->putAndInsertString(DCM_TextValue, "deep");
    const std::string text = dump(object.reload());
    EXPECT_TRUE(contains(text, "\n" + std::string(32, ' ') + "(0040,a160) UT deep\n"));
    EXPECT_FALSE(contains(text, std::string(33, ' ')));
    EXPECT_TRUE(contains(text, "\n" + std::string(31, ' ') + "(fffe,e000) na **start**\n"));
}

TEST(Dump, ShowsConsumedElementsAndLeavesBinaryValuesInTheFile) {
    TestObject object;
    object.describe({.rows = 100, .columns = 100});
    object.pixels(Bytes(10000, 1));
    object.text(DCM_TextValue, std::string(9000, 'x').c_str());
    object.reload();
    DcmDataset& dataset = object.dataset();
    const std::string text = dump(dataset, false, false);
    EXPECT_TRUE(contains(text, "\n(7fe0,0010) OW \n"));
    EXPECT_TRUE(contains(text, " UT " + std::string(9000, 'x') + "\n"));
    EXPECT_FALSE(dataset.tagExists(DCM_PixelData));
}

TEST(Dump, IsNotLongerThanAnAnswerMayBe) {
    TestObject object;
    const std::string text(60 << 20, 'x');
    for (int i = 0; i < 5; ++i) {
        DcmItem* item = nullptr;
        ASSERT_TRUE(object.dataset().findOrCreateSequenceItem(DCM_ContentSequence, item, i).good());
        item->putAndInsertString(DCM_TextValue, text.c_str());
    }
    CapturingProcess process(object.dataset(), 0, {.list = true, .listOnly = true});
    std::ostream nowhere(nullptr);
    process.setOutputStream(&nowhere);
    EXPECT_THROW(process.process(), std::runtime_error);
}
