#include <chrono>
#include <filesystem>
#include <thread>

#include "pack/packseries.h"
#include "tests/shared/testing.h"
#include "tools/view/PageServer.h"
#include "tools/view/viewedobject.h"

// Ctrl-C may come before the thread that serves has begun to.
TEST(PageServer, IsStoppedThoughItHasNotBegun) {
    const TemporaryFolder folder;
    view::PageServer server(folder.path(), {});
    std::thread stopping([&] { server.stop(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    server.run();
    stopping.join();
}

TEST(ViewedObject, ListsEveryNameAsJsonThatCanBeRead) {
    const view::ViewedObject object{.name = "\"a\xff\n", .prefix = {}, .frames = 1};
    EXPECT_TRUE(contains(view::objectsJson({&object, 1}), "\"name\": \"\\\"a\xEF\xBF\xBD\\u000a\", "));
}

// Of results that were written as files and later as a pack, or the other way round, the later ones are the
// object's: the others may be those of the one that had its name before.
TEST(ViewedObject, HasTheResultsThatWereWrittenLast) {
    const TemporaryFolder folder;
    const std::string line = " 4 2 mono 8 8 0 1 256 128 0 0    \n", o = folder / "o";
    writeFile(folder / "a.desc", "1" + line + "2" + line);
    for (const char* name : {"a_1.p.qi4", "a_2.p.qi4", "o_1.t.qi4"})
        writeFile(folder / name, "bytes");
    pack::packSeries(o, {folder / "a.desc"}, false);
    writeFile(o + ".desc", "1" + line);
    const auto written = std::filesystem::last_write_time(o + ".index");
    std::filesystem::last_write_time(o + ".desc", written - std::chrono::seconds(1));
    EXPECT_TRUE(view::describeResults("o", o).packed);
    std::filesystem::last_write_time(o + ".desc", written + std::chrono::seconds(1));
    EXPECT_FALSE(view::describeResults("o", o).packed);
    EXPECT_EQ(view::describeResults("o", o, true).frames, 2);
}
