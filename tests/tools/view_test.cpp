#include <chrono>
#include <thread>

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
