// The values of a query.
#include "vintakd/service/TagTable.h"
#include "tests/shared/testing.h"

TEST(TagTable, HoldsNoMoreThanAnAnswerMay) {
    VintakRequest request;
    request.tags = {{0x0008, 0x0018}, {0x0010, 0x0010}};
    request.files = {"a", "b"};
    request.tagsOnce = 1;
    const std::string value(100 << 20, 'x');
    TagTable table;
    for (int round = 0; round < 2; ++round) {  // the count begins again
        table.reset(request);
        table.record({0x0008, 0x0018}, 0, value);
        table.record({0x0010, 0x0010}, 0, value);
        table.record({0x0008, 0x0018}, 1, value);  // nobody asked
        EXPECT_EQ(table.answer(), value + ";" + value + ";;");
        EXPECT_THROW(table.record({0x0010, 0x0010}, 1, value), std::runtime_error);
    }
}
