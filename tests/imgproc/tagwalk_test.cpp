// Which handlers a walk calls, in which order, and what it removes.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include "imgproc/dicomparser.h"
#include "tests/shared/testing.h"

namespace {

std::string nameOf(const DcmElement& element) {
    char text[16];
    std::snprintf(text, sizeof text, "%04X%04X", element.getGTag(), element.getETag());
    return text;
}

class RecordingParser : public CDicomTagParser2 {
public:
    void InitPrivateData() override { ++walks; }
    static RecordingParser& of(IDicomTagParser2* parser) { return *static_cast<RecordingParser*>(parser); }
    static void record(IDicomTagParser2* parser) {
        of(parser).calls += nameOf(*of(parser).currentElement()) + " ";
    }
    static void recordSecond(IDicomTagParser2* parser) {
        of(parser).calls += "2:" + nameOf(*of(parser).currentElement()) + " ";
    }
    static void recordAndRemove(IDicomTagParser2* parser) {
        record(parser);
        parser->removeElement();
    }
    static bool count(IDicomTagParser2* parser) {
        of(parser).seen += std::to_string(of(parser).elementIndex()) + " ";
        return of(parser).currentElement()->getETag() != 0x0011;
    }

    std::string walk(DcmItem& item, TagPreprocess preprocess = NoPreprocessFunction) {
        calls.clear();
        parseTags(&item, nullptr, &table, preprocess);
        return calls;
    }

    SDicomTagGroupList table;
    std::string calls;
    std::string seen;
    int walks = 0;
};

void put(DcmItem& item, Uint16 group, Uint16 element, const char* text = "1") {
    item.putAndInsertString(DcmTag(group, element, DcmVR(EVR_LO)), text);
}

}  // namespace

TEST(TagWalk, CallsHandlersInTheOrderOfTheItem) {
    DcmItem item;
    for (Uint16 element : {0x0010, 0x0011, 0x0012, 0x0030})
        put(item, 0x0028, element);
    put(item, 0x0008, 0x0060);
    put(item, 0x7FE0, 0x0010);
    RecordingParser parser;
    parser.table.addTag(DcmTagKey(0x0028, 0x0030), RecordingParser::record, nullptr);
    parser.table.addTag(DcmTagKey(0x7FE0, 0x0010), RecordingParser::record, nullptr);
    parser.table.addTag(DcmTagKey(0x0028, 0x0010), RecordingParser::record, nullptr, {2, 1});
    parser.table.addTag(DcmTagKey(0x0008, 0x0060), RecordingParser::record, nullptr);
    parser.table.addTag(DcmTagKey(0x0028, 0x0030), RecordingParser::recordSecond, nullptr);
    parser.table.addTag(DcmTagKey(0x0018, 0x0030), RecordingParser::record, nullptr);
    const std::string expected = "00080060 00280010 00280011 00280030 2:00280030 7FE00010 ";
    EXPECT_EQ(parser.walk(item), expected);
    EXPECT_EQ(parser.walk(item), expected) << "a second walk starts over";
    EXPECT_EQ(parser.walks, 2);
    EXPECT_EQ(parser.walk(item, RecordingParser::count), "00080060 00280010 00280030 2:00280030 7FE00010 ");
    EXPECT_EQ(parser.seen, "0 1 2 3 4 5 ");
    parser.table.ReleaseTags();
    EXPECT_EQ(parser.walk(item), "");
}

TEST(TagWalk, GroupRunsLeaveOutPrivateGroups) {
    DcmItem item;
    for (Uint16 group : {0x6000, 0x6001, 0x6002, 0x601E, 0x60FE, 0x6100}) {
        put(item, group, 0x0010);
        put(item, group, 0x0050);
    }
    RecordingParser parser;
    parser.table.addTag(DcmTagKey(0x6000, 0x0050), RecordingParser::record, nullptr, kOverlayGroups);
    parser.table.addTag(DcmTagKey(0x6000, 0x0010), RecordingParser::record, nullptr, kOverlayGroups);
    EXPECT_EQ(parser.walk(item), "60000010 60000050 60020010 60020050 601E0010 601E0050 60FE0010 60FE0050 ");
}

TEST(TagWalk, PrivateElementsNeedTheirCreator) {
    DcmItem item;
    put(item, 0xF215, 0x0010, "PB group A");
    put(item, 0xF215, 0x0011, "SOMEBODY");
    put(item, 0xF215, 0x101D);
    put(item, 0xF215, 0x1021);
    put(item, 0xF215, 0x1122);
    RecordingParser parser;
    parser.table.addTag(DcmTagKey(0xF215, 0x101D), RecordingParser::record, "PB group A");
    parser.table.addTag(DcmTagKey(0xF215, 0x0022), RecordingParser::recordSecond, "PB group A");
    parser.table.addTag(DcmTagKey(0xF215, 0x0021), RecordingParser::recordSecond, "PB group B");
    // Once its creator was seen, elements of every block are looked up by their low byte. Of two creators of
    // one group the one registered first is served.
    EXPECT_EQ(parser.walk(item), "F215101D 2:F2151122 ");

    put(item, 0xF215, 0x0010, "PB group B");
    EXPECT_EQ(parser.walk(item), "");

    DcmItem elsewhere;
    put(elsewhere, 0xF215, 0x0010, "SOMEBODY");
    put(elsewhere, 0xF215, 0x00A0, "PB group A");
    put(elsewhere, 0xF215, 0xA01D);
    EXPECT_EQ(parser.walk(elsewhere), "F215A01D ");
}

TEST(TagWalk, PrivateElementsWithoutACreatorAreMatchedByTheirNumber) {
    DcmItem item;
    put(item, 0x0009, 0x0010, "SOMEBODY");
    put(item, 0x0009, 0x1001);
    put(item, 0x0009, 0x1101);
    RecordingParser parser;
    parser.table.addTag(DcmTagKey(0x0009, 0x1101), RecordingParser::record, nullptr);
    parser.table.addTag(DcmTagKey(0x0009, 0x0010), RecordingParser::record, nullptr);
    EXPECT_EQ(parser.walk(item), "00090010 00091101 ");
}

TEST(TagWalk, RemovedElementsLeaveTheItemAndTheNextIsStillCalled) {
    DcmItem item;
    for (Uint16 element : {0x0010, 0x0011, 0x0012})
        put(item, 0x0028, element);
    RecordingParser parser;
    parser.table.addTag(DcmTagKey(0x0028, 0x0010), RecordingParser::recordAndRemove, nullptr);
    parser.table.addTag(DcmTagKey(0x0028, 0x0011), RecordingParser::record, nullptr);
    parser.table.addTag(DcmTagKey(0x0028, 0x0012), RecordingParser::recordAndRemove, nullptr);
    EXPECT_EQ(parser.walk(item), "00280010 00280011 00280012 ");
    EXPECT_EQ(item.card(), 1U);
    EXPECT_TRUE(item.tagExists(DcmTagKey(0x0028, 0x0011)));
    DcmItem empty;
    EXPECT_EQ(parser.walk(empty), "");
}
