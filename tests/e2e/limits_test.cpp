#include <stdlib.h>

#include <future>
#include <map>

#include "hsutils/Utils.h"
#include "tests/shared/daemon_process.h"
#include "tests/shared/objectbytes.h"

// What the servants of the real daemon may use, by "limits.conf".

namespace {

class LimitsTest : public testing::Test {
protected:
    void start(const std::string& limits, const char* servers = "1") {
        writeFile(m_folder / "limits.conf", limits);
        m_daemon = std::make_unique<DaemonProcess>(std::vector<std::string>{"--servers", servers},
                                                   [this] { setenv("CONF", m_folder.path().c_str(), 1); });
    }

    /// An object of grey 8-bit frames, all of them black and most of its file a hole.
    std::string writeObject(unsigned rows, unsigned columns, unsigned frames,
                            const char* name = "object.dcm") {
        const uint64_t bytes = uint64_t{rows} * columns * frames;
        std::string path = m_folder / name;
        std::string number = std::to_string(frames);
        if (number.size() % 2 != 0) number += ' ';
        const std::string head = objectbytes::metaHeader(objectbytes::kExplicitLittle) +
                                 objectbytes::grey(rows, columns, number) +
                                 objectbytes::element(0x7FE0, 0x0010, "OB", "", static_cast<int64_t>(bytes));
        writeFile(path, head);
        std::filesystem::resize_file(path, head.size() + bytes);
        return path;
    }

    /// Everything in the folder that begins so.
    std::map<std::string, uint64_t> sizes(const std::string& start) const {
        std::map<std::string, uint64_t> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
            const std::string name = entry.path().filename();
            if (name.starts_with(start)) found[name.substr(start.size())] = entry.file_size();
        }
        return found;
    }

    TestRequest conversion(const std::string& input, const char* output) const {
        TestRequest request{.input = input, .output = m_folder / output};
        return request;
    }

    TemporaryFolder m_folder;
    std::unique_ptr<DaemonProcess> m_daemon;
};

}  // namespace

TEST_F(LimitsTest, DeadlineEndsTheRequestTellsTheClientAndNamesTheObject) {
    start("DEADLINE_SECONDS = 1\n");
    const std::string path = writeObject(512, 512, 2000);
    auto answer = std::async(std::launch::async, [&] {
        try {
            return "answered: " + conversion(path, "out").send(m_daemon->gateway());
        } catch (const ipc::UserException&) {
            return std::string("told");
        }
    });
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(m_folder / "out_1.raw"); }));
    kill(m_daemon->servantPid(), SIGSTOP);  // on any machine too slow to be done in time
    EXPECT_EQ(answer.get(), "told");
    EXPECT_TRUE(
        contains(m_daemon->log(), " into serving " + path + "; the deadline of 1 s for a request was hit; "));
    EXPECT_EQ(conversion(writeObject(16, 16, 1), "next").send(m_daemon->gateway()), "<<<>>>");
    const int servant = m_daemon->servantPid();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(m_daemon->servantPid(), servant) << "a deadline is over with its request";
}

TEST_F(LimitsTest, ObjectBeyondTheAddressSpaceIsAnErrorThatSaysSo) {
    if (kSanitized) GTEST_SKIP() << "the address space is not limited under a sanitizer";
    start("ADDRESS_SPACE_MB = 256\n");
    const int servant = m_daemon->servantPid();
    const std::string path = writeObject(16384, 16384, 1);
    EXPECT_EQ(conversion(path, "out").error(m_daemon->gateway()),
              "ImageProcess error (1) processing file: " + path + ": out of memory");
    EXPECT_EQ(conversion(writeObject(16, 16, 1), "next").send(m_daemon->gateway()), "<<<>>>");
    EXPECT_EQ(m_daemon->servantPid(), servant);
}

TEST_F(LimitsTest, RequestBeyondItsQuotaFailsWithBothNumbersAndLeavesNothing) {
    using Sizes = std::map<std::string, uint64_t>;
    start("OUTPUT_SIZE_MB = 1\n");
    const auto error = [&](const TestRequest& request) {
        const std::string text = request.error(m_daemon->gateway());
        const size_t number = text.find("the files of the request need ");
        EXPECT_TRUE(contains(text, " bytes or more, the limit is 1048576"));
        return number == std::string::npos ? 0 : std::stoull(text.substr(number + 30));
    };
    const std::string large = writeObject(512, 512, 5), small = writeObject(512, 512, 2, "small.dcm");
    const uint64_t needed =
        error(conversion(large, "out"));  // the fourth frame is too much, for there are lines as well
    EXPECT_GT(needed, uint64_t{4} * 512 * 512);
    EXPECT_LT(needed, uint64_t{4} * 512 * 512 + 1000);
    EXPECT_EQ(sizes("out"), Sizes());
    TestRequest frame = conversion(writeObject(1200, 1200, 1), "out");
    frame.specificFrame = 1;
    EXPECT_EQ(error(frame), uint64_t{1200} * 1200);
    EXPECT_EQ(sizes("out"), Sizes());

    // Thumbnails and the copy count, and every file of a query does.
    TestRequest thumbnails = conversion(writeObject(300, 300, 11, "thumbnails.dcm"), "out");
    EXPECT_EQ(thumbnails.error(m_daemon->gateway()), "");
    thumbnails.writeMask = 0;  // 11 x 90,000 bytes of pixels and 11 x 16,384 of thumbnails
    error(thumbnails);
    EXPECT_EQ(sizes("out"), Sizes());
    writeFile(m_folder / "copy.dcm", objectbytes::metaHeader(objectbytes::kExplicitLittle) +
                                         objectbytes::element(8, 0x60, "CS", "OT") +
                                         objectbytes::element(8, 0x2111, "OB", std::string(1 << 20, 'x')));
    const TestRequest copy = conversion(m_folder / "copy.dcm", "copy_of");
    EXPECT_GT(error(copy), uint64_t{1} << 20);
    EXPECT_EQ(sizes("copy_of"), Sizes());
    TestRequest query = conversion(m_folder.path() + "/", "query_of_");
    query.tags = {8, 0x60};
    query.files = {"small.dcm", "object.dcm"};
    error(query);
    EXPECT_EQ(sizes("query_of_"), Sizes());
    EXPECT_EQ(conversion(small, "out").error(m_daemon->gateway()), "")
        << "each request has a quota of its own";
}

TEST_F(LimitsTest, StripsOfPixelsStaySmallSideBySide) {
    if (kSanitized) GTEST_SKIP() << "the address space is not limited under a sanitizer";
    start("ADDRESS_SPACE_MB = 256\n", "4");
    std::vector<std::future<std::string>> errors;
    for (const char* name : {"strip1", "strip2", "strip3", "strip4"}) {
        TestRequest request = conversion(writeObject(1, 65535, 1, name), (std::string(name) + "_of").c_str());
        request.writeMask = 3;
        errors.push_back(std::async(
            std::launch::async, [this, request]() mutable { return request.error(m_daemon->gateway()); }));
    }
    for (auto& error : errors)
        EXPECT_EQ(error.get(), "");
    for (const char* name : {"strip1", "strip2", "strip3", "strip4"}) {
        const auto found = sizes(name + std::string("_of_1"));
        EXPECT_EQ(found.at(".128x128t.raw"), 65535u);
        EXPECT_EQ(found.at(".raw"), 65535u);
        // The sides of the compressed one stand in 16 bits each.
        EXPECT_EQ(readFile(m_folder / (name + std::string("_of_1.128x128t.cw1"))).substr(6, 4),
                  std::string("\xFF\xFF\1\0", 4));
    }
}
