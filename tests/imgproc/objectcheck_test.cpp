// Objects that are refused before anything looks at them, and those that are not.
#include "imgproc/objectcheck.h"

#include "tests/shared/testobject.h"

namespace {

/// Why the object is refused after a reload, or "".
std::string refusal(const ImageShape& shape, size_t bytes) {
    TestObject object;
    object.describe(shape);
    object.pixels(Bytes(bytes, 1));
    object.reload();
    return checkObject(object.dataset()).value_or("");
}

}  // namespace

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
