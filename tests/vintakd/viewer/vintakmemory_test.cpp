#include "vintakd/viewer/vintakmemory.h"
#include "tests/shared/testing.h"

namespace {

TEST(VintakMemory, ConsecutiveFramesShareOneBuffer) {
    CVintakMemory memory;
    char* first = memory.allocate(100, 1);
    ASSERT_TRUE(first);
    EXPECT_EQ(memory.chunk(first, 100, 50, 1), first);
    memory.release(first, 50, 1);
    EXPECT_EQ(memory.allocate(80, 2), first) << "a smaller frame fits into it";
    memory.release(first, 80, 2);
    EXPECT_EQ(memory.allocate(100, 3), first) << "it kept its size";

    char* second = memory.allocate(100, 4);
    EXPECT_NE(second, first);
    second[99] = 1;
    memory.release(second, 100, 4);
    memory.release(nullptr, 0, 4);
    memory.release(first, 100, 3);
    char* larger = memory.allocate(200, 5);
    ASSERT_TRUE(larger);
    larger[199] = 1;
    memory.release(larger, 200, 5);
    EXPECT_EQ(memory.allocate(100, 6), larger);
}

}  // namespace
