// What the scan of a file refuses, what it lets through, and that this is what the toolkit's parser accepts;
// then objects that are refused by their attributes.
#include "imgproc/objectscan.h"

#include "imgproc/objectcheck.h"
#include "imgproc/objectlimits.h"
#include "tests/shared/objectbytes.h"
#include "tests/shared/testobject.h"

namespace {

using namespace objectbytes;

const std::string id = element(0x0010, 0x0020, "LO", "ID");
const std::string implicitId = implicitElement(0x0010, 0x0020, "ID");
const std::string name = element(0x0010, 0x0010, "PN", "A^B ");
const std::string implicitName = implicitElement(0x0010, 0x0010, "A^B ");

class ObjectScan : public testing::Test {
protected:
    /// Why the bytes are refused, or "".
    std::string refusal(const std::string& bytes, UnknownSyntax unknown = UnknownSyntax::refused) {
        std::ofstream(m_path, std::ios::binary) << bytes;
        ObjectFile file(m_path);
        return scanObject(file, nullptr, unknown).value_or("");
    }
    /// Whether the parser takes what was scanned last.
    bool parses() {
        dcmEnableUnknownVRConversion.set(OFTrue);
        const bool good = DcmFileFormat().loadFile(m_path.c_str(), EXS_Unknown, EGL_noChange, 1024).good();
        dcmEnableUnknownVRConversion.set(OFFalse);
        return good;
    }

    TemporaryFolder m_folder;
    std::string m_path = m_folder / "object.dcm";
};

/// `cause` is in the refusal; "" is what passes.
struct Case {
    const char* what;
    std::string bytes;
    const char* cause = "";
    bool stricterThanParser = false;
};

const std::string plain = metaHeader(kExplicitLittle), implicit = metaHeader(kImplicitLittle),
                  rle = metaHeader(kRunLength);

const Case cases[] = {
    {"an element", plain + name},
    {"no meta header", name + id},
    {"no meta header, implicit", implicitName + implicitId},
    {"preamble without meta header", std::string(128, '\0') + "DICM" + name},
    {"meta header without its length",
     std::string(128, '\0') + "DICM" + metaHeader(kExplicitLittle).substr(144) + name},
    {"meta header, length too long", std::string(128, '\0') + "DICM" + element(2, 0, "UL", four(40)) +
                                         element(2, 16, "UI", "1.2.840.10008.1.2.1 ") + name + id},
    {"meta header, length too short", std::string(128, '\0') + "DICM" + element(2, 0, "UL", four(8)) +
                                          element(2, 16, "UI", "1.2.840.10008.1.2.1 ") + name},
    {"a few bytes too many", plain + name + "abc", "ends in the middle of an element"},
    {"a value that is cut", plain + name + element(0x10, 0x20, "LO", "ab", 20),
     "ends in the middle of (0010,0020)"},
    {"elements out of order, twice, of odd length",
     plain + id + name + id + element(0x10, 0x30, "DA", "abc")},
    {"unknown short VR", plain + tag(9, 0x1140) + "??" + two(2) + "ab" + name},
    {"a VR that no element has", plain + tag(9, 0x1140) + "na" + four(0) + name, "(0009,1140)"},

    {"sequence and item with ends", plain + sequence(item(id + itemEnd, kOpen) + sequenceEnd, kOpen) + name},
    {"sequence and item with lengths", plain + sequence(item(id)) + name},
    {"item with length and end", plain + sequence(item(id + itemEnd) + sequenceEnd, kOpen) + name},
    {"sequence with length and end", plain + sequence(item(id) + sequenceEnd) + name},
    {"implicit sequence with length", implicit + implicitElement(8, 0x1140, item(implicitId)) + implicitName},
    {"implicit sequence of a private block", implicit + implicitElement(0x41, 0x10, "PAPYRUS 3.0 ") +
                                                 implicitElement(0x41, 0x1010, item(implicitId))},
    {"implicit private value", implicit + implicitElement(0x41, 0x1010, item(implicitId, 77)) + implicitName},
    {"unknown VR without length is implicit inside",
     plain + element(9, 0x1140, "UN", item(implicitId + itemEnd, kOpen) + sequenceEnd, kOpen) + name},
    {"so is a VR to come",
     plain + tag(9, 0x1140) + "XX" + two(0) + four(kOpen) + item(implicitId) + sequenceEnd + name},
    {"unknown VR with length where the dictionary knows better",
     plain + element(8, 0x1140, "UN", item(implicitId + itemEnd, kOpen)) + name},
    {"unknown VR with length", plain + element(9, 0x1140, "UN", item(implicitId, 77)) + name},
    {"an end of item ends the data set", plain + name + itemEnd + "anything"},

    {"open sequence", plain + sequence(item(id), kOpen), "ends in the middle of sequence (0008,1140)"},
    {"open item", plain + sequence(item(id, kOpen), kOpen), "ends in the middle of sequence (0008,1140)"},
    {"sequence that is cut", plain + sequence(item(id), 200), "ends in the middle of sequence (0008,1140)"},
    {"item that is cut where its sequence ends", plain + sequence(item(id, 200))},
    {"value longer than its item",
     plain + sequence(item(element(0x10, 0x20, "LO", "IDIDIDIDID"), 12) + sequenceEnd, kOpen) + name,
     "(0010,0020) has 10 bytes, but 4 are left in what holds it"},
    {"item longer than its sequence", plain + sequence(item(id), 14) + name},
    {"item longer than what holds its sequence", plain + sequence(item(sequence(item(id), 14), 26)) + name,
     "an item has 10 bytes, but 6 are left in what holds it", true},
    {"sequence longer than its item", plain + sequence(item(sequence(item(id)), 20)) + name,
     "sequence (0008,1140) has 18 bytes, but 8 are left in what holds it"},
    {"open sequence that leaves its item",
     plain + sequence(item(sequence(item(id) + sequenceEnd, kOpen), 20) + sequenceEnd, kOpen) + name,
     "an item has 10 bytes, but 0 are left in what holds it", true},
    {"an item outside", plain + item("") + name, "(fffe,e000) stands where an element ought to be"},
    {"an end of sequence outside", plain + name + sequenceEnd,
     "(fffe,e0dd) stands where an element ought to be"},
    {"an element where an item ought to be", plain + sequence(name, kOpen),
     "sequence (0008,1140) holds (0010,0010)"},
    {"a sequence in other values", plain + element(9, 0x1140, "OB", item(id) + sequenceEnd, kOpen),
     "(0009,1140) has no length"},
    {"a text without length", implicit + implicitElement(0x10, 0x20, item(implicitId) + sequenceEnd, kOpen),
     "(0010,0020) has no length"},

    {"fragments", rle + name + fragments(item("abcd") + item("abcde"))},
    {"fragments in a native transfer syntax", plain + name + fragments(item("abcd"))},
    {"open pixel data", rle + name + element(0x7FE0, 0x10, "OB", item("") + item("abcd"), kOpen),
     "ends in the middle of sequence (7fe0,0010)"},
    {"a fragment that is cut", rle + name + element(0x7FE0, 0x10, "OB", item("") + item("abcd", 100), kOpen),
     "ends in the middle of (fffe,e000)"},
    {"a fragment without length", rle + fragments(item("abcd", kOpen)), "a fragment of undefined length"},
    {"a fragment that is none", rle + fragments(id), "holds (0010,0020)"},

    {"deflated", metaHeader(kDeflated) + deflate(name + nested(64))},
    {"deflated and cut", metaHeader(kDeflated) + deflate(name + id).substr(0, 12), "ends in the middle"},
    {"not deflated", metaHeader(kDeflated) + name + id, "the deflated data is damaged"},
    {"deflated and open", metaHeader(kDeflated) + deflate(sequence(item(id), kOpen)), "ends in the middle"},
    {"nested deep, but not too deep", plain + nested(64)},
};

/// Why the object is refused after a reload, or "".
std::string refusal(const ImageShape& shape, size_t bytes) {
    TestObject object;
    object.describe(shape);
    object.pixels(Bytes(bytes, 1));
    object.reload();
    return checkObject(object.dataset()).value_or("");
}

}  // namespace

TEST_F(ObjectScan, PassesWhatTheParserReadsAndNothingElse) {
    for (const Case& one : cases) {
        const std::string cause = refusal(one.bytes);
        if (*one.cause == '\0')
            EXPECT_EQ(cause, "") << one.what;
        else
            EXPECT_TRUE(contains(cause, one.cause)) << one.what;
        EXPECT_EQ(parses(), cause.empty() || one.stricterThanParser) << one.what;
    }
}

TEST_F(ObjectScan, UnknownTransferSyntaxesAreNamed) {
    for (const std::string uid :
         {"1.2.840.10008.1.2.4.110", "1.2.840.10008.1.2.4.112", "1.2.840.10008.1.2.4.204", "1.2.3"})
        EXPECT_EQ(refusal(metaHeader(uid) + name), "unsupported transfer syntax " + uid);
}

TEST_F(ObjectScan, UnknownTransferSyntaxesAreReadByTheirFirstElement) {
    const std::string bigEndian("\0\x10\0\x10PN\0\4A^B ", 12),
        cut = element(0x0010, 0x0010, "PN", "A^B ", 40);
    for (const std::string& elements :
         {name + fragments(item("abcd")), implicitName + implicitId, bigEndian, cut}) {
        const std::string cause = refusal(metaHeader("1.2.3") + elements, UnknownSyntax::guessed);
        EXPECT_EQ(cause.empty(), elements != cut) << cause;
        EXPECT_EQ(cause.empty(), parses()) << cause;
    }
}

TEST_F(ObjectScan, NestingIsLimitedInEveryEncoding) {
    static_assert(objectlimits::kNestingDepth == 64);
    const char* cause = "sequences are nested more than 64 levels deep";
    for (const int depth : {65, 1000, 100000}) {
        EXPECT_EQ(refusal(plain + nested(depth)), cause) << depth;
        EXPECT_EQ(refusal(metaHeader(kDeflated) + deflate(nested(depth))), cause) << depth;
        std::string levels;
        for (int i = 0; i < depth; ++i)
            levels += implicitElement(9, 0x1020, item("", kOpen), kOpen);
        EXPECT_EQ(refusal(implicit + levels), cause) << depth;
    }
    std::string inside = implicitId;  // sequences that only the dictionary knows to be such, with lengths
    for (int i = 0; i < 65; ++i)
        inside = implicitElement(8, 0x1140, item(inside));
    EXPECT_EQ(refusal(implicit + inside), cause);
    EXPECT_EQ(refusal(plain + element(8, 0x1140, "UN", inside.substr(8))), cause);
    EXPECT_EQ(refusal(inside), cause) << "and without a meta header";
}

TEST_F(ObjectScan, WhatADeflatedObjectUnpacksToIsLimited) {
    static_assert(objectlimits::kInflatedBytes == 512u << 20);
    const std::string zeros(16 << 20, '\0');
    const std::string one =
        metaHeader(kDeflated) + deflate(element(0x7FE0, 0x10, "OB", "", 1 << 30), zeros, 64);
    EXPECT_LT(one.size(), 2u << 20);
    EXPECT_EQ(refusal(one), "unpacks to more than 536870912 bytes");
    EXPECT_EQ(refusal(metaHeader(kDeflated) +
                      deflate(element(9, 0x1000, "OB", zeros) + element(9, 0x1001, "OB", "", 500 << 20),
                              zeros, 32)),
              "unpacks to more than 536870912 bytes");
}

TEST_F(ObjectScan, ElementsAreCounted) {
    static_assert(objectlimits::kElements == 2u << 20);
    std::string many = rle + element(0x7FE0, 0x10, "OB", "", kOpen);
    for (size_t i = 0; i < objectlimits::kElements; ++i)
        many += item("");
    EXPECT_EQ(refusal(many + sequenceEnd), "holds more than 2097152 elements");
}

TEST_F(ObjectScan, WhatTheParserSearchesForEveryElementIsLimited) {
    const char* steps = "takes more than 100000000 steps to sort its elements and find their private blocks";
    std::string down = plain;
    for (unsigned i = 0xFFFF; i >= 0x1000; --i)
        down += element(9, i, "UN", "");
    const std::string up = plain + sequence(item(down.substr(plain.size() + 12 * 50000)));
    EXPECT_EQ(refusal(down), steps);
    EXPECT_EQ(refusal(up), "") << "some thousands are no matter";

    std::string blocks = plain;
    for (unsigned i = 0; i < 24000; ++i)
        blocks += element(0x0011 + 2 * (i / 240), 0x0010 + i % 240, "LO", "A ");
    EXPECT_EQ(refusal(blocks), steps);
    EXPECT_EQ(refusal(blocks.substr(0, plain.size() + 10 * 8000)), "");
}

TEST(ObjectCheck, SizesAreCountedWithoutOverflow) {
    EXPECT_EQ(refusal({.rows = 4, .columns = 4}, 16), "");
    EXPECT_TRUE(contains(refusal({.rows = 4, .columns = 5}, 16), "holds 16 bytes, but a frame needs 20"));
    EXPECT_EQ(refusal({.rows = 4, .columns = 4, .frames = 3}, 16), "") << "the first frame is there";
    EXPECT_EQ(refusal({.rows = 4, .columns = 4, .samples = 3, .photometric = "YBR_FULL_422"}, 32), "");
    EXPECT_NE(refusal({.rows = 4, .columns = 4, .samples = 3, .photometric = "YBR_FULL"}, 32), "");
    EXPECT_EQ(refusal({.rows = 9, .columns = 9, .allocated = 1, .stored = 1}, 12), "");
    // 5368627200 bits are more than 32 bits can count.
    EXPECT_TRUE(contains(refusal({.rows = 16384, .columns = 21845, .allocated = 15}, 16),
                         "holds 16 bytes, but a frame needs 671078400"));
    EXPECT_TRUE(
        contains(refusal({.rows = 65535, .columns = 65535, .allocated = 16}, 16), "exceeds the limit"));
    EXPECT_TRUE(
        contains(refusal({.rows = 65535, .columns = 65535, .samples = 65535}, 16), "exceeds the limit"));
    // 2^32 pixels of two bytes in 32 bits would be 0.
    EXPECT_NE(refusal({.rows = 32768, .columns = 32768, .allocated = 16, .samples = 4}, 16), "");
    EXPECT_EQ(refusal({.rows = 0, .columns = 4}, 16), "") << "left to the conversion";
}

TEST(ObjectCheck, BitsMustBePossible) {
    EXPECT_TRUE(contains(refusal({.columns = 2, .allocated = 32, .stored = 32}, 8), "32"));
    EXPECT_NE(refusal({.columns = 2, .allocated = 0}, 8), "");
    EXPECT_NE(refusal({.columns = 2, .allocated = 8, .stored = 12}, 8), "");
    EXPECT_EQ(refusal({.columns = 2, .allocated = 16, .stored = 0, .highBit = 0}, 8), "") << "a blank frame";
}
