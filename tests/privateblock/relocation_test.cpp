// Elements of the older generation and where they go.
#include <map>
#include <sstream>

#include "privateblock/privatetags.h"
#include "tests/shared/testobject.h"

namespace {

// The whole table as people write it: a block and, per old element, the key.
const std::map<Uint16, const char*> s_blocks = {
    {0xBA00,
     "00:10 01:01 02:02 03:03 04:04 05:05 06:06 07:07 11:11 12:12 21:13 22:14 31:0E 41:1A 42:1B 51:15 52:16 "
     "53:17 "
     "54:18 61:2A 62:2B 71:21 72:22 73:23 74:24 75:25 81:31 82:32 83:33 91:34 92:35 93:36 94:94 A0:37 A1:38 "
     "BA:1D"},
    {0xDA00,
     "01:41 02:42 03:43 04:44 11:51 12:52 13:53 14:54 15:55 21:61 31:62 32:63 33:64 38:65 41:6A 42:6B 43:6C "
     "51:71 "
     "52:72 53:73 61:76 62:7A 63:7B 71:0A 72:0B 73:0C 74:0D 80:3A DA:1E"}};

std::map<Uint16, Uint16> oldElementToKey() {
    std::map<Uint16, Uint16> keys;
    for (const auto& [block, rows] : s_blocks) {
        std::istringstream in(rows);
        for (std::string row; in >> row;)
            keys[static_cast<Uint16>(block + std::stoi(row.substr(0, 2), nullptr, 16))] =
                static_cast<Uint16>(std::stoi(row.substr(3), nullptr, 16));
    }
    return keys;
}

}  // namespace

TEST(PrivateRelocation, EveryOldElementGoesToItsKeyAndTheOthersGo) {
    const auto keys = oldElementToKey();
    ASSERT_EQ(keys.size(), 65U);
    DcmDataset dataset;
    for (Uint16 block : {Uint16(0xBA00), Uint16(0xDA00)}) {
        putText(dataset, block >> 8, "Harbourscope");
        for (unsigned low = 0; low < 0x100; ++low)
            putText(dataset, static_cast<Uint16>(block | low), std::to_string(block | low).c_str());
    }
    handlePrivateTags(&dataset);
    EXPECT_EQ(dataset.card(), 66U) << "65 elements and the creator";
    EXPECT_EQ(textAt(dataset, 0x0010), "PB group A");
    for (const auto& [element, key] : keys)
        EXPECT_EQ(textAt(dataset, 0x1000 | key), std::to_string(element)) << std::hex << element;
    EXPECT_EQ(dataset.getElement(1)->getTag().getPrivateCreator(), std::string("PB group A"));
}

TEST(PrivateRelocation, ABlockWithoutCreatorIsTheOldSystemsOneOfAnotherIsNot) {
    DcmDataset dataset;
    putText(dataset, 0x0010, "SOMEBODY ELSE");
    putText(dataset, 0x00BA, "SOMEBODY ELSE");
    putText(dataset, 0xBA11, "theirs");
    putText(dataset, 0x00DA, "");
    putText(dataset, 0xDA80, "print");
    handlePrivateTags(&dataset);
    EXPECT_EQ(textAt(dataset, 0xBA11), "theirs");
    EXPECT_EQ(textAt(dataset, 0x00BA), "SOMEBODY ELSE");
    EXPECT_EQ(textAt(dataset, 0x113A), "print");
    EXPECT_EQ(textAt(dataset, 0xDA80), "-");
}

TEST(PrivateRelocation, AnElementAlreadyThereWins) {
    DcmDataset dataset;
    putText(dataset, 0x0010, "PB group A");
    putText(dataset, 0x103A, "new");
    putText(dataset, 0x00DA, "Harbourscope");
    putText(dataset, 0xDA80, "old");
    handlePrivateTags(&dataset);
    EXPECT_EQ(textAt(dataset, 0x103A), "new");
    EXPECT_EQ(dataset.card(), 2U);
}

TEST(PrivateRelocation, WorksInsideSequencesAndMovesBlock10OnlyWhenAsked) {
    DcmDataset dataset;
    DcmItem* item = &dataset;
    for (int level = 0; level < 3; ++level) {
        DcmItem* below = nullptr;
        item->findOrCreateSequenceItem(DCM_ReferencedStudySequence, below, -2);
        item = below;
    }
    putText(*item, 0xDA80, "deep");
    putText(dataset, 0x0010, "SOMEBODY ELSE");
    putText(dataset, 0x103A, "canonic");
    handlePrivateTags(&dataset);
    EXPECT_EQ(textAt(*item, 0x103A), "deep");
    EXPECT_EQ(textAt(dataset, 0x103A), "canonic");
    handleCanonicAndOldPrivateTags(&dataset);
    EXPECT_EQ(textAt(dataset, 0x103A), "-");
    EXPECT_EQ(textAt(dataset, 0x113A), "canonic");
    EXPECT_EQ(textAt(dataset, 0x0011), "PB group A");
}

TEST(PrivateRelocation, InsertedAndCopiedElementsGetTheirKeys) {
    DcmDataset dataset;
    PBItem block(dataset);
    auto* text = new DcmLongString(DcmTag(0xF215, 0xDA80, DcmVR(EVR_LO)));
    text->putString("print");
    ASSERT_TRUE(block.insertPB(text).good());
    EXPECT_EQ(textAt(dataset, 0x103A), "print");
    auto second = std::make_unique<DcmLongString>(DcmTag(0xF215, 0xDA80, DcmVR(EVR_LO)));
    EXPECT_TRUE(block.insertPB(second.get()).bad()) << "no replacement was asked for";
    EXPECT_EQ(second->getTag(), DcmTagKey(0xF215, 0xDA80));

    DcmSequenceOfItems sequence(DcmTag(0xF215, 0xDA31, DcmVR(EVR_SQ)));
    auto* item = new DcmItem;
    putText(*item, 0xBABA, "1");
    sequence.append(item);
    ASSERT_TRUE(block.copyPrivateElement(sequence).good());
    DcmItem* copied = nullptr;
    ASSERT_TRUE(block.findAndGetPBSequenceItem(0x62, copied).good());
    EXPECT_EQ(textAt(*copied, 0x101D), "1");
    EXPECT_EQ(textAt(*item, 0xBABA), "1") << "the original stays as it is";

    EXPECT_TRUE(block.removePB(0x3A));
    EXPECT_FALSE(block.removePB(0x3A));
    block.nukePrivateTags();
    EXPECT_EQ(dataset.card(), 0U);
}
