// Which block an item's private elements live in, and the tags that follow from it.
#include "privateblock/privatetags.h"
#include "tests/shared/testobject.h"

namespace {

/// What is found under key 3A, in the item alone or below it as well; "-" when nothing is.
std::string found(DcmItem& item, bool below = false) {
    const char* value = nullptr;
    return PBItem(item).findAndGetPBString(0x3A, value, below).good() ? value : "-";
}

}  // namespace

TEST(PrivateBlock, NothingIsWrittenBeforeTheFirstValueIsStored) {
    DcmDataset dataset;
    PBItem block(dataset);
    EXPECT_FALSE(block.checkAndReservePrivateBlock());
    EXPECT_TRUE(block.calcPrivateBlock(false));
    EXPECT_EQ(found(dataset), "-");
    EXPECT_EQ(dataset.card(), 0U);
    ASSERT_TRUE(block.putAndInsertPBString(0x45, "STUDY").good());
    EXPECT_EQ(textAt(dataset, 0x0010), "PB group A");
    EXPECT_EQ(textAt(dataset, 0x1045), "STUDY");
}

TEST(PrivateBlock, TheFirstBlockThatIsFreeOrOursWins) {
    DcmDataset taken;
    putText(taken, 0x0010, "SOMEBODY ELSE");
    ASSERT_TRUE(PBItem(taken).putAndInsertPBString(0x3A, "print").good());
    EXPECT_EQ(textAt(taken, 0x113A), "print");
    EXPECT_EQ(textAt(taken, 0x0011), "PB group A");

    DcmDataset gap;  // ours stands at 12, but 11 is free
    putText(gap, 0x0010, "SOMEBODY ELSE");
    putText(gap, 0x0012, "PB group A");
    putText(gap, 0x123A, "print");
    EXPECT_EQ(found(gap), "-");
    EXPECT_EQ(PBItem(gap).getTag(0x3A), DcmTagKey(0xF215, 0x113A));
}

TEST(PrivateBlock, WithoutAFreeBlockEverythingFails) {
    DcmDataset dataset;
    for (Uint16 block = 0x10; block <= 0xFF; ++block)
        putText(dataset, block, "SOMEBODY ELSE");
    const unsigned long before = dataset.card();
    PBItem block(dataset);
    const char* value = nullptr;
    DcmItem* item = nullptr;
    EXPECT_EQ(block.findAndGetPBString(0x3A, value, true), EC_PBPrivateTagProblem);
    EXPECT_EQ(block.putAndInsertPBString(0x3A, "x"), EC_PBPrivateTagProblem);
    EXPECT_EQ(block.findOrCreatePBSequenceItem(0x71, item), EC_PBPrivateTagProblem);
    EXPECT_FALSE(block.removePB(0x3A));
    handlePrivateTags(&dataset);
    EXPECT_EQ(dataset.card(), before);
    EXPECT_EQ(EC_PBPrivateTagProblem.theModule, 1051);
    EXPECT_EQ(EC_PBPrivateTagProblem.theCode, 15);
    EXPECT_STREQ(OFCondition(EC_PBPrivateTagProblem).text(), "PBItem Private Tag Relocation Error");
}

TEST(PrivateBlock, ACreatorElementThatIsNoTextStopsTheSearch) {
    DcmDataset dataset;
    auto* number = new DcmUnsignedShort(DcmTag(0xF215, 0x0010, DcmVR(EVR_US)));
    number->putUint16(1);
    dataset.insert(number);
    EXPECT_FALSE(PBItem(dataset).calcPrivateBlock(false));
}

TEST(PrivateBlock, TheSearchBelowUsesEachItemsOwnBlock) {
    DcmDataset dataset;
    DcmItem* outer = nullptr;
    DcmItem* inner = nullptr;
    dataset.findOrCreateSequenceItem(DCM_ReferencedStudySequence, outer, 0);
    outer->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, inner, 0);
    putText(*inner, 0x0010, "SOMEBODY ELSE");
    ASSERT_TRUE(PBItem(*inner).putAndInsertPBString(0x3A, "deep").good());
    EXPECT_EQ(found(dataset), "-");
    EXPECT_EQ(found(dataset, true), "deep");
    DcmItem* second = nullptr;
    outer->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, second, 1);
    ASSERT_TRUE(PBItem(*second).putAndInsertPBString(0x3A, "later").good());
    EXPECT_EQ(found(dataset, true), "deep");

    ASSERT_TRUE(PBItem(*outer).putAndInsertPBString(0x3A, "higher").good());
    EXPECT_EQ(found(dataset, true), "higher");
    DcmElement* element = nullptr;
    EXPECT_EQ(PBItem(dataset).findAndGetPBElement(0x47, element, true), EC_TagNotFound);
    EXPECT_EQ(element, nullptr);
}

TEST(PrivateBlock, TagsOfKeys) {
    EXPECT_EQ(PBItem::canonicTag(0x73), DcmTagKey(0xF215, 0x1073));
    EXPECT_EQ(PBItem::canonicTag(0x73).getEVR(), EVR_OB);
    EXPECT_EQ(PBItem::getCanonicKey(DcmTag(0xF215, 0x1173)), DcmTagKey(0xF215, 0x1073));
    EXPECT_EQ(PBItem::getCanonicKey(DcmTag(0xF215, 0xDA53)), DcmTagKey(0xF215, 0x1073));
    EXPECT_EQ(PBItem::getCanonicKey(DcmTag(0xF215, 0xBA99)), DcmTagKey(0xF215, 0x1000));
    EXPECT_EQ(PBItem::getCanonicKey(DCM_Rows), DCM_Rows);

    EXPECT_TRUE(PBItem::isOurPrivateTag(DcmTag(0x0009, 0x1000, "PB group A")));
    EXPECT_FALSE(PBItem::isOurPrivateTag(DcmTag(0x0007, 0x1000, "PB group A")));
    EXPECT_FALSE(PBItem::isOurPrivateTag(DcmTag(0xF215, 0x1000)));
}
