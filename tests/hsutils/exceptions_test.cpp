#include <memory>
#include <sstream>

#include "hsutils/HSAssertionException.h"
#include "hsutils/HSIOException.h"
#include "hsutils/HSTimeoutException.h"
#include "tests/shared/testing.h"

namespace {

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
