#include <memory>
#include <sstream>

#include "hsutils/HSAssertionException.h"
#include "hsutils/HSIOException.h"
#include "hsutils/HSProperties.h"
#include "hsutils/HSTimeoutException.h"
#include "tests/shared/testing.h"

namespace {

class HSPropertiesTest : public testing::Test {
protected:
    std::string file(const std::string& content) {
        std::string path = m_folder / "a.conf";
        writeFile(path, content);
        return path;
    }
    HSProperties loaded(const std::string& content) {
        HSProperties properties;
        EXPECT_TRUE(properties.load(file(content).c_str()));
        return properties;
    }

    TemporaryFolder m_folder;
};

TEST_F(HSPropertiesTest, ReadsLinesAsPeopleWriteThem) {
    const HSProperties p = loaded(
        "# a comment\r\n"
        "  \t# another, indented = ignored\n"
        "  KELT_PERCENT = \"12.5\"  \r\n"
        "KELT_PERCENT_CT=12.5 # not a comment\n"
        "split= a\"b\n"
        "=5\n"
        "no separator\n"
        "empty=\n"
        "two=1=2\n"
        "last=unterminated");
    EXPECT_EQ(p.size(), 6u);
    EXPECT_STREQ(p.getProperty("KELT_PERCENT"), "12.5");
    EXPECT_STREQ(p.getProperty("KELT_PERCENT_CT"), "12.5 # not a comment");
    EXPECT_STREQ(p.getProperty("split"), "a b");
    EXPECT_STREQ(p.getProperty("empty"), "");
    EXPECT_STREQ(p.getProperty("two"), "1=2");
    EXPECT_STREQ(p.getProperty("last"), "unterminated");
    EXPECT_EQ(p.getProperty("kelt_percent"), nullptr);
}

TEST_F(HSPropertiesTest, ALineThatIsTooLongIsReadAsSeveral) {
    const HSProperties p = loaded("a=" + std::string(65533, 'x') + "b=second half\n");
    EXPECT_EQ(std::string(p.getProperty("a")).size(), 65533u);
    EXPECT_STREQ(p.getProperty("b"), "second half");
}

TEST_F(HSPropertiesTest, LaterValuesReplaceEarlierOnesInPlace) {
    HSProperties p = loaded("a=1\nb=2\na=3\n");
    const char* b = p.getProperty("b");
    for (int i = 0; i < 100; ++i)
        p.setProperty(std::to_string(i).c_str(), "x");
    EXPECT_EQ(p.getProperty("b"), b) << "a value must stay where it is while others come";
    for (int i = 0; i < 100; ++i)
        p.remove(std::to_string(i).c_str());
    p.remove("not there");

    const std::string out = m_folder / "out.conf";
    EXPECT_TRUE(p.write(out.c_str()));
    EXPECT_FALSE(p.write("/dev/full"));
    EXPECT_EQ(readFile(out), "a=\"3\"\nb=\"2\"\n");

    HSProperties copy(p);
    p.setProperty("b", "changed");
    EXPECT_STREQ(copy.getProperty("b"), "2");
    EXPECT_FALSE(copy.load((m_folder / "missing").c_str()));
    EXPECT_EQ(copy.size(), 2u);
    EXPECT_TRUE(copy.load(out.c_str()));
    EXPECT_STREQ(copy.getProperty("a"), "3");
}

std::string rendered(const HSException& e) {
    std::string text = "left over";
    e.toString(text);
    const std::unique_ptr<char[]> copy(e.toString());
    EXPECT_EQ(text, copy.get());
    std::ostringstream stream;
    e.print(stream);
    EXPECT_EQ(stream.str(), text + "\n");
    return text;
}

TEST(HSExceptionTest, EveryKindHasItsOwnText) {
    EXPECT_EQ(rendered(HSException()), "Unknown Exception: [1] Unknown exception");
    EXPECT_EQ(rendered(HSException(-7)), "Unknown Exception: [-7] Unknown exception");
    EXPECT_EQ(rendered(HSException("%d of %s", 3, "x")), "Unknown Exception: [1] 3 of x");
    EXPECT_EQ(rendered(HSException(4, "%s", "y")), "Unknown Exception: [4] y");
    EXPECT_EQ(rendered(HSException(4, std::string("100% as it is"))), "Unknown Exception: [4] 100% as it is");
    EXPECT_EQ(rendered(HSTimeoutException(2, "late")), "Timeout Exception: [2] late");
    EXPECT_EQ(rendered(HSIOException(5, "gone")), "IO Exception: [5] gone");
}

TEST(HSExceptionTest, AssertionsNameTheCheckAndItsPlace) {
    EXPECT_EQ(rendered(HSAssertionException("str", 57, "F")), "ASSERT (str) in F at line 57.");
    EXPECT_EQ(rendered(HSAssertionException("f", 57, "F", "could not open %s in HSProperties::write", "P")),
              "ASSERT (f) in F at line 57.\ncould not open P in HSProperties::write");
}

}  // namespace
