// The functional groups of an object's frames, which stay in its file while it is converted: the copy that is
// saved is, byte for byte, that of an object that was loaded with all of them.
#include <functional>

#include "hsutils/ClassedError.h"
#include "imgproc/fileitems.h"
#include "tests/shared/objectbytes.h"
#include "tests/shared/testobject.h"
#include "vintakd/service/objectloader.h"
#include "vintakd/service/objectsaver.h"

namespace {

using namespace objectbytes;

constexpr int kItems = 200;
constexpr size_t kLengthLikeDate = 'D' | 'A' << 8;  ///< as bytes the name of a value representation
// The same elements however they are written.
using Write = std::function<std::string(unsigned, unsigned, const std::string&, const std::string&)>;

std::string explicitly(unsigned group, unsigned number, const std::string& vr, const std::string& value) {
    return element(group, number, vr, value);
}
std::string implicitly(unsigned group, unsigned number, const std::string&, const std::string& value) {
    return implicitElement(group, number, value);
}

/// Even lengths, as they ought to be.
std::string even(const std::string& text) {
    return text.size() % 2 == 0 ? text : text + ' ';
}

/// What is asked of the groups of frame `n`.
std::string content(const Write& write, int n) {
    const std::string plane = item(write(0x20, 0x32, "DS", even("1\\2\\" + std::to_string(n))));
    return write(0x9, 0x10, "LO", "SOMEBODY ELSE ") + write(0x9, 0x1010, "LO", even(std::to_string(n))) +
           write(0x18, 0x9114, "SQ", n % 3 == 0 ? "" : item("")) + write(0x20, 0x9113, "SQ", plane) +
           (n % 50 == 1 ? write(0x40, 0xA160, "UT", std::string(3000, static_cast<char>('a' + n % 26))) : "");
}

std::string groups(const Write& write, const std::function<std::string(int)>& extra = {}) {
    std::string items;
    for (int n = 0; n < kItems; ++n)
        items += item(content(write, n) + (extra ? extra(n) : ""));
    return items;
}

std::string object(const Write& write, const std::string& syntax, const std::string& groups,
                   const std::string& before = "", const std::string& after = "") {
    return metaHeader(syntax) + write(8, 0x16, "UI", std::string("1.2.840.10008.5.1.4.1.1.2.1\0", 28)) +
           write(8, 0x18, "UI", std::string("1.2.3.4\0", 8)) + write(0x10, 0x20, "LO", "ID") + before +
           groups + after + write(0x7FE0, 0x10, "OW", std::string(5000, 'p'));
}

class FrameGroupsInFile : public testing::Test {
protected:
    FrameGroupsInFile() { dcmEnableUnknownVRConversion.set(OFTrue); }
    ~FrameGroupsInFile() override { dcmEnableUnknownVRConversion.set(OFFalse); }

    struct Copy {
        std::string bytes;
        bool groupsInFile = false;
        int items = 0;
    };
    /// The bytes of the copy, or why there is none.
    Copy copyOf(const std::string& bytes, ObjectValues values) {
        writeFile(m_folder / "o", bytes);
        Copy copy;
        try {
            DcmFileFormat file;
            OutputQuota quota;
            loadObject(file, m_folder / "o", 256, values);
            DcmElement* element = nullptr;
            file.getDataset()->findAndGetElement(DCM_PerFrameFunctionalGroupsSequence, element);
            if (const auto* items = dynamic_cast<FileItems*>(element)) {
                copy.groupsInFile = true;
                EXPECT_TRUE(items
                                ->eachItem([&](DcmItem& item) {
                                    OFString value;
                                    item.findAndGetOFString(DCM_ImagePositionPatient, value, 2, OFTrue);
                                    EXPECT_EQ(value, std::to_string(copy.items++).c_str());
                                    return EC_Normal;
                                })
                                .good());
            }
            saveObject(file, m_folder / "copy", quota);
            copy.bytes = readFile(m_folder / "copy");
        } catch (const ClassedError& error) {
            copy.bytes = error.text();
        }
        return copy;
    }
    void expectSame(const char* what, const std::string& bytes, bool inFile) {
        const Copy whole = copyOf(bytes, ObjectValues::onDemand);
        const Copy copy = copyOf(bytes, ObjectValues::forConversion);
        EXPECT_TRUE(copy.bytes == whole.bytes) << what << ": " << copy.bytes.substr(0, 200);
        EXPECT_EQ(copy.groupsInFile, inFile) << what;
        EXPECT_EQ(copy.items, inFile ? kItems : 0) << what;
        EXPECT_FALSE(whole.groupsInFile);
    }

    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(FrameGroupsInFile, TheCopyHasThemAsIfTheyHadBeenLoaded) {
    const std::string items = groups(explicitly), implicit = groups(implicitly);
    std::string open;
    for (int n = 0; n < kItems; ++n)
        open += item(content(explicitly, n) + itemEnd, kOpen);
    const auto sequenceOf = [](const std::string& content, int64_t length = kOwn) {
        return element(0x5200, 0x9230, "SQ", content, length);
    };
    expectSame("lengths", object(explicitly, kExplicitLittle, sequenceOf(items)), true);
    expectSame("ends", object(explicitly, kExplicitLittle, sequenceOf(open + sequenceEnd, kOpen)), true);
    expectSame("length and end", object(explicitly, kExplicitLittle, sequenceOf(items + sequenceEnd)), true);
    expectSame("implicit", object(implicitly, kImplicitLittle, implicitElement(0x5200, 0x9230, implicit)),
               true);
    expectSame("others of the group",
               object(explicitly, kExplicitLittle, sequenceOf(items), element(0x5200, 0x9229, "SQ", item("")),
                      element(0x5200, 0x9999, "LO", "XY")),
               true);
    expectSame("groups with their lengths",
               object(explicitly, kExplicitLittle,
                      sequenceOf(groups(
                          explicitly,
                          [](int) { return element(0x54, 0, "UL", four(99)) + number(0x54, 0x11, 7); }))),
               true);
    // At the file's end there is nothing behind them.
    const std::string all = object(explicitly, kExplicitLittle, sequenceOf(items));
    expectSame("at the end", all.substr(0, all.find(tag(0x7FE0, 0x10) + "OW")), true);
}

TEST_F(FrameGroupsInFile, TheyAreLoadedWhereTheirTreeIsChangedOrIsInDoubt) {
    const std::string items = groups(explicitly);
    const std::string sequence = element(0x5200, 0x9230, "SQ", items);
    const auto with = [](const std::string& groups, const std::string& before = "",
                         const std::string& after = "") {
        return object(explicitly, kExplicitLittle, groups, before, after);
    };
    expectSame("few", with(element(0x5200, 0x9230, "SQ", item(content(explicitly, 0)))), false);
    expectSame("none", with(element(0x5200, 0x9230, "SQ", "")), false);
    expectSame("a block that may be moved",
               with(element(0x5200, 0x9230, "SQ",
                            groups(explicitly,
                                   [](int n) {
                                       return n == 150 ? element(0xF215, 0x10, "LO", "Harbourscope") +
                                                             element(0xF215, 0xBA00, "LO", "1 ")
                                                       : "";
                                   }))),
               false);
    expectSame("the length of their group", with(sequence, element(0x5200, 0, "UL", four(12))), false);
    expectSame("twice", with(sequence, "", sequence), false);
    expectSame("out of order", with(sequence, element(0x5400, 0x100, "SQ", ""), ""), false);
    expectSame("before what comes first", with(sequence, "", element(0x28, 0x10, "US", two(3))), false);
    expectSame("of an unknown kind", with(element(0x5200, 0x9230, "UN", groups(implicitly))), false);
    expectSame("no sequence", with(element(0x5200, 0x9230, "OB", items)), false);
    // Where nothing tells the encoding, the parser looks at the first element, and the next one misleads.
    const std::string first = std::string(128, '\0') + "DICM" +
                              implicitElement(0x5200, 0x9230, groups(implicitly)) +
                              implicitElement(0x7FE0, 0x10, std::string(kLengthLikeDate, 'p'));
    const std::string copy = copyOf(first, ObjectValues::forConversion).bytes;
    EXPECT_NE(copy.find("DICM"), std::string::npos) << copy.substr(0, 200);
    // What the scan lets pass and the parser does not.
    expectSame("no items in length",
               with(element(0x5200, 0x9230, "SQ", items + item("", 0)).append(item(""))), false);
    expectSame("unfinished", with(element(0x5200, 0x9230, "SQ", items, kOpen)), false);
}
