// Where a client looks for the results of its request, as the bytes of the request say.
#include "vintakd/service/resultfolders.h"

#include "hsutils/ClassedError.h"
#include "tests/shared/testing.h"
#include "vintakd/vintakd_if.h"

namespace {

/// A conversion of two files with what the client sees as the folders of each.
class RequestBytes {
public:
    RequestBytes(const std::string& output, const std::string& cache) {
        output.copy(header.outputPrefix, vintakd::kTextFieldSize - 1);
        cache.copy(header.cachePrefix, vintakd::kTextFieldSize - 1);
        header.numFiles = 2;
        header.extras = vintakd::requestextras::kFolders;
        header.extrasCheck = vintakd::requestextras::checkOf(header.extras);
    }

    ipc::Message message(size_t withoutLast = 0) const {
        const std::string names{"\1\0\0\0a\4\0\0\0sub/", 13};
        std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
        bytes.append(names).append(reinterpret_cast<const char*>(folders), sizeof folders);
        bytes.resize(bytes.size() - withoutLast);
        char* copy = new char[bytes.size()];
        bytes.copy(copy, bytes.size());
        return {copy, bytes.size()};
    }

    /// The text of the refusal, empty when the request passes.
    std::string refusal(size_t withoutLast = 0) const {
        try {
            checkResultFolders(parseRequest(message(withoutLast)));
            return {};
        } catch (const ClassedError& error) {
            return error.text();
        }
    }

    vintakd::VintakMsgIn header{};
    vintakd::ResultFolders folders[2]{};
};

}  // namespace

TEST(ResultFolders, AreThoseThatTheClientSeesOrNothingIsConverted) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "cache/sub");
    std::filesystem::create_directory(folder / "sub");
    RequestBytes request(folder / "", folder / "cache/");
    const auto seen = [&](const char* path) { return vintakd::identifyFolder(folder / path); };
    request.folders[0] = {seen(""), seen("cache")};
    request.folders[1] = {seen("sub"), seen("cache/sub")};
    const auto right = request.folders[1];
    EXPECT_EQ(request.refusal(), "");

    ++request.folders[1].output.inode;
    EXPECT_TRUE(contains(request.refusal(), (folder / "sub/") + ": the daemon sees another folder at " +
                                                (folder / "sub") + " than the client"));
    request.folders[1] = {right.output, {right.cache.device + 1, right.cache.inode}};
    EXPECT_TRUE(contains(request.refusal(), "sees another folder at " + (folder / "cache/sub")));
    request.header.noCached = true;
    EXPECT_EQ(request.refusal(), "") << "nothing is written there";
    request.header.noCached = false;
    request.folders[1] = {right.output, {}};
    EXPECT_TRUE(contains(request.refusal(), "the client sees no folder at " + (folder / "cache/sub")));

    request.folders[1] = right;
    std::filesystem::remove(folder / "sub");
    EXPECT_TRUE(contains(request.refusal(), "the daemon sees no folder at " + (folder / "sub") +
                                                ": No such file or directory; its client does"));
    request.folders[1].output = {};
    EXPECT_EQ(request.refusal(), "") << "neither sees one, which the conversion tells";

    request.folders[0] = {};
    request.header.dumponly = true;
    EXPECT_EQ(request.refusal(), "") << "a dump writes nothing";
    request.header.dumponly = false;
    EXPECT_EQ(request.refusal(1), "The request ends before the folders of its 2 files");
    EXPECT_EQ(request.refusal(66), "The request ends within its list of files");
    request.header.extras |= vintakd::requestextras::kWaited;
    request.header.extrasCheck = vintakd::requestextras::checkOf(request.header.extras);
    EXPECT_EQ(request.refusal(), "The request ends before the time that its client waited");
    request.header.extrasCheck = request.header.extras;
    EXPECT_EQ(request.refusal(1), "") << "what an older client left in the byte";
    request.header.extras = 0;
    EXPECT_EQ(request.refusal(), "") << "trailing bytes that the header does not name are passed over";
}

TEST(ResultFolders, ThePrefixNamesThem) {
    for (const auto& [prefix, folder] : {std::pair<const char*, const char*>{"", ""},
                                         {"x", "."},
                                         {"/x", "/"},
                                         {"/a/b", "/a"},
                                         {"/a/b/", "/a/b"},
                                         {"a/b", "a"}})
        EXPECT_EQ(vintakd::folderOfPrefix(prefix), folder) << prefix;
}

TEST(AbsolutePath, LeadsWhereThePathDoes) {
    const TemporaryFolder folder;
    const std::string base = folder.path();
    std::filesystem::create_directories(base + "/real/sub");
    std::filesystem::create_directory_symlink("real/sub", base + "/link");
    EXPECT_EQ(vintakd::absolutePath(base + "/link/../a"), base + "/link/../a") << "which is real/a";
    EXPECT_EQ(vintakd::absolutePath(base + "/./real//sub/../a/"), base + "/real/a/");
    EXPECT_EQ(vintakd::absolutePath(base + "/none/../a"), base + "/a");
    EXPECT_EQ(vintakd::absolutePath(""), std::filesystem::current_path().string() + "/");
}
