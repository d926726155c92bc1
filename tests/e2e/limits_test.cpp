#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <future>

#include "daemon_process.h"
#include "hsutils/Utils.h"
#include "tests/objectbytes.h"
#include "vintakd/ipcexceptions.h"

// What the servants of the real daemon may use, by "limits.conf".

namespace {

class LimitsTest : public testing::Test {
protected:
    void start(const std::string& limits) {
        writeFile(m_folder / "limits.conf", limits);
        m_daemon = std::make_unique<DaemonProcess>(std::vector<std::string>{"--servers", "1"},
                                                   [this] { setenv("CONF", m_folder.path().c_str(), 1); });
    }

    /// An object of grey 8-bit frames, all of them black and most of its file a hole.
    std::string writeObject(unsigned size, unsigned frames) {
        const uint64_t bytes = uint64_t{size} * size * frames;
        std::string path = m_folder / "object.dcm";
        std::string number = std::to_string(frames);
        if (number.size() % 2 != 0) number += ' ';
        const std::string head = objectbytes::metaHeader(objectbytes::explicitLittle) +
                                 objectbytes::grey(size, size, number) +
                                 objectbytes::element(0x7FE0, 0x0010, "OB", "", static_cast<int64_t>(bytes));
        writeFile(path, head);
        std::filesystem::resize_file(path, head.size() + bytes);
        return path;
    }

    TestRequest conversion(const std::string& input, const char* output) const {
        TestRequest request;
        request.input = input;
        request.output = m_folder / output;
        return request;
    }

    TemporaryFolder m_folder;
    std::unique_ptr<DaemonProcess> m_daemon;
};

}  // namespace

TEST_F(LimitsTest, DeadlineEndsTheRequestTellsTheClientAndNamesTheObject) {
    start("DEADLINE_SECONDS = 1\n");
    const std::string path = writeObject(512, 2000);
    auto answer = std::async(std::launch::async, [&] {
        TestRequest request = conversion(path, "out");
        try {
            return "answered: " + request.send(m_daemon->gateway());
        } catch (const ipc::UserException&) {
            return std::string("told");
        }
    });
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(m_folder / "out_1.raw"); }));
    kill(m_daemon->servantPid(), SIGSTOP);  // on any machine too slow to be done in time
    EXPECT_EQ(answer.get(), "told");
    EXPECT_NE(m_daemon->log().find(" into serving " + path + "; the deadline of 1 s for a request was hit; "),
              std::string::npos)
        << m_daemon->log();
    TestRequest next = conversion(writeObject(16, 1), "next");
    EXPECT_EQ(next.send(m_daemon->gateway()), "<<<>>>");
}

TEST_F(LimitsTest, ObjectBeyondTheAddressSpaceIsAnErrorThatSaysSo) {
    if (kSanitized) GTEST_SKIP() << "the address space is not limited under a sanitizer";
    start("ADDRESS_SPACE_MB = 256\n");
    const int servant = m_daemon->servantPid();
    const std::string path = writeObject(16384, 1);
    TestRequest request = conversion(path, "out");
    EXPECT_EQ(request.error(m_daemon->gateway()),
              "ImageProcess error (1) processing file: " + path + ": out of memory");
    TestRequest next = conversion(writeObject(16, 1), "next");
    EXPECT_EQ(next.send(m_daemon->gateway()), "<<<>>>");
    EXPECT_EQ(m_daemon->servantPid(), servant);
}

TEST_F(LimitsTest, FileBeyondItsLimitIsAnErrorThatNamesIt) {
    start("FILE_SIZE_MB = 1\n");
    TestRequest request = conversion(writeObject(1200, 1), "out");
    const std::string error = request.error(m_daemon->gateway());
    EXPECT_NE(error.find(m_folder / "out_1.raw"), std::string::npos) << error;
    EXPECT_NE(error.find("File too large"), std::string::npos) << error;
}

TEST_F(LimitsTest, EntryThatMakesNoSenseIsRefusedAtTheStart) {
    writeFile(m_folder / "limits.conf", "CPU_SECONDS = soon\n");
    const ProgramResult result = runProgram(VINTAKD_BINARY, {},
                                            {"RUN=" + m_folder.path(), "CONF=" + m_folder.path(),
                                             "VINTAKD_TRACE_SWITCH=-", "VINTAKD_SEGMENT=vintakd_e2e_none"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find(m_folder / "limits.conf" + ": CPU_SECONDS = soon: "), std::string::npos)
        << result.errors;
}
