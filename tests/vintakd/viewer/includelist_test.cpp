#include "tests/vintakd/viewer/conversion.h"

namespace {

class IncludeListTest : public ConversionTest {
protected:
    IncludeList read(const std::vector<std::string>& texts) {
        IncludeList list;
        for (const std::string& text : texts) {
            std::ofstream(m_folder / "list", std::ios::trunc) << text;
            list.read((m_folder / "list").c_str());
        }
        return list;
    }
};

TEST_F(IncludeListTest, TagsAndGroups) {
    const IncludeList one = read({"(0029,1010)\n"});
    EXPECT_TRUE(one.includes({0x0029, 0x1010}));
    EXPECT_FALSE(one.includes({0x0029, 0x1011}));
    EXPECT_FALSE(one.includes({0x0029, 0x0010}));

    const IncludeList group = read({"(0029,1010)\n(0029,0000)\n(0031,00ff\n(0033,1001) text\n(0029,FFFF)"});
    for (const Uint16 element : {0x0000, 0x0010, 0x1010, 0x1011, 0xFFFF})
        EXPECT_TRUE(group.includes({0x0029, element}));
    EXPECT_TRUE(group.includes({0x0031, 0x00FF})) << "no closing bracket needed";
    EXPECT_TRUE(group.includes({0x0033, 0x1001}));
    EXPECT_FALSE(group.includes({0x0033, 0x1002}));
    EXPECT_FALSE(group.includes({0x0027, 0x1010}));
    EXPECT_FALSE(group.includes({0x0000, 0x0000}));
}

TEST_F(IncludeListTest, DecidesWhichPrivateElementsStay) {
    std::filesystem::create_directories(m_folder / "conf");
    std::filesystem::create_directories(m_folder / "home");
    std::ofstream(m_folder / "conf/include.conf") << "(0009,0000)\n";
    std::ofstream(m_folder / "home/privtags.cfg") << "(0029,1010)\n";
    const DcmTagKey kept[] = {{0x0009, 0x0010}, {0x0009, 0x1001}, {0x0029, 0x1010},
                              {0x0008, 0x0060}, {0xF215, 0x0010}, {0xF215, 0x103A}};
    const DcmTagKey dropped[] = {{0x0029, 0x0010}, {0x0029, 0x1011}, {0x0031, 0x0010}};
    TestObject object;
    object.describe({.columns = 2});
    for (const auto& tags : {std::span<const DcmTagKey>(kept), std::span<const DcmTagKey>(dropped)})
        for (const DcmTagKey& tag : tags)
            object.dataset().putAndInsertString(DcmTag(tag, EVR_LO), "X", true);
    object.pixels(Bytes{0, 255});
    DcmDataset& dataset = object.reload();
    setenv("CONF", (m_folder / "conf").c_str(), 1);
    setenv("DOWNLOAD_HOME", (m_folder / "home").c_str(), 1);
    EXPECT_EQ(convert(dataset).result, 0);
    unsetenv("CONF");
    unsetenv("DOWNLOAD_HOME");
    for (const DcmTagKey& tag : kept)
        EXPECT_TRUE(dataset.tagExists(tag)) << tag.toString();
    for (const DcmTagKey& tag : dropped)
        EXPECT_FALSE(dataset.tagExists(tag)) << tag.toString();
}

}  // namespace
