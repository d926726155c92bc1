#include <regex>

#include "hsutils/Utils.h"
#include "tests/vintakd/pool/pool_fixture.h"

// What a servant may use, and the line that explains its end.

class DeathTest : public PoolTest {
protected:
    /// Has the one servant die of `command`; the rest of the line about it, from "Servant PID (0) " on.
    std::string lineAfter(const std::string& command) {
        eventually([this] { return m_gateway->servant(0) > 0; });  // a new one may serve before it is listed
        const std::string begin = "Servant " + std::to_string(m_gateway->servant(0)) + " (0) ";
        EXPECT_THROW(ask(command), ipc::UserException);
        EXPECT_EQ(ask("next"), "next");
        const std::string text = log();
        const size_t found = text.find(begin);
        if (found == std::string::npos) return "no line in: " + text;
        EXPECT_EQ(text.find(begin, found + 1), std::string::npos) << "more than one line";
        const size_t start = found + begin.size();
        return text.substr(start, text.find('\n', start) - start);
    }
};

TEST_F(DeathTest, SaysWhatKilledTheServantAtWhatWork) {
    start(1);
    const std::pair<const char*, const char*> deaths[] = {{"crash", R"(was killed by SIGABRT \(Aborted\))"},
                                                          {"exit", "exited with status 7"}};
    for (const auto& [command, death] : deaths) {
        const std::regex expected(death + std::string(R"( after \d+\.\d{3} s, \d+\.\d{3} s into serving )") +
                                  command +
                                  R"(; it used \d+\.\d{3} s of processor time and \d+ MiB of memory)");
        const std::string line = lineAfter(command);
        EXPECT_TRUE(std::regex_match(line, expected)) << line;
    }
}

TEST_F(DeathTest, NamesTheProcessorTimeThatWasHit) {
    ServantLimits limits = ServantLimits::none();
    limits.cpuSeconds = 2;
    limits.frameCpuSeconds = 1;
    start(1, 60000, limits);
    const std::pair<const char*, const char*> spins[] = {
        {"spin", "; the limit of 2 s of processor time for a request was hit; "},
        {"spin on a frame", "; the limit of 1 s of processor time for a frame was hit; "}};
    for (const auto& [command, limit] : spins) {
        const std::string line = lineAfter(command);
        EXPECT_TRUE(contains(line, "SIGXCPU")) << line;
        EXPECT_TRUE(contains(line, limit)) << line;
    }
}

TEST_F(DeathTest, FilterIsNamedAndLeavesNoSocketAndNoOtherProcess) {
    if (kSanitized) GTEST_SKIP() << "the filter is off under a sanitizer";
    ServantLimits limits = ServantLimits::none();
    limits.systemCallFilter = true;
    start(1, 20000, limits);
    EXPECT_EQ(ask("socket"), "EPERM");
    EXPECT_EQ(ask("kill"), "EPERM");
    const std::string line = lineAfter("exec");
    EXPECT_TRUE(contains(line, "SIGSYS"));
    EXPECT_TRUE(contains(line, "; it made a system call that servants have given up; "));
}

TEST_F(PoolTest, UnlimitedServantIsNotLimited) {
    start(1);
    for (const char* command : {"socket", "kill", "descriptors", "memory"})
        EXPECT_EQ(ask(command), "done") << command;
}

TEST_F(PoolTest, LimitedServantRunsAgainstItsLimitsAndLivesOn) {
    ServantLimits limits;
    limits.addressSpaceBytes = uint64_t{1} << 30;
    start(1, 20000, limits);
    EXPECT_EQ(ask("descriptors"), "EMFILE");
    if (!kSanitized) {
        EXPECT_EQ(ask("memory"), "ENOMEM");
    }
    EXPECT_EQ(ask("echo"), "echo");
}
