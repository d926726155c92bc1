#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>

#include "tests/shared/testing.h"
#include "vintakd/ipc/Channel.h"
#include "vintakd/ipc/VintakLog.h"
#include "vintakd/ipc/ipcexceptions.h"

namespace {

/// The trace with a switch and files of its own.
class Trace : public testing::Test {
protected:
    Trace() {
        setenv("VINTAKD_TRACE_SWITCH", m_name.c_str(), 1);
        setenv("VINTAKD_TRACE_PREFIX", (m_folder / "trace").c_str(), 1);
    }
    ~Trace() override { shm_unlink(m_name.c_str()); }
    std::string fileOf(pid_t pid) const {
        return readFile(m_folder / ("trace." + std::to_string(pid) + ".log"));
    }

    const std::string m_name = "/vintaklog_test_" + std::to_string(getpid());
    const TemporaryFolder m_folder;
};

}  // namespace

TEST_F(Trace, SwitchReachesOtherProcessesAndEachWritesItsOwnFile) {
    EXPECT_FALSE(VintakLog::IsEnabled());  // creates the switch, off
    struct stat status {};
    const int file = shm_open(m_name.c_str(), O_RDONLY, 0);
    fstat(file, &status);
    close(file);
    EXPECT_EQ(status.st_size, 1);
    EXPECT_EQ(status.st_mode & 0777, 0600u);

    const pid_t child = fork();
    if (child == 0) {
        while (!VintakLog::IsEnabled())
            usleep(1000);
        VintakLog::Log("from the child");
        _exit(0);
    }
    EXPECT_TRUE(VintakLog::Enable(true));
    int exitStatus = -1;
    waitpid(child, &exitStatus, 0);
    EXPECT_EQ(exitStatus, 0);
    EXPECT_TRUE(VintakLog::Enable(false));

    const std::string line = fileOf(child), id = std::to_string(child);
    EXPECT_TRUE(std::regex_match(line, std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6} \\[" +
                                                  id + " / " + id + "\\] from the child\n")))
        << line;
}

TEST_F(Trace, ChannelsAndTheirGuardsSayWhatTheyDo) {
    ASSERT_TRUE(VintakLog::Enable(true));
    {
        alignas(16) char memory[512] = {};
        ipc::Channel channel(memory, sizeof memory, true, 3);
        EXPECT_THROW(channel.send("x", 1, 10), TimeoutException);
    }
    VintakLog::Enable(false);
    const std::string log = fileOf(getpid());
    for (const char* line :
         {"     ChannelHeader\\[0x[0-9a-f]+\\]::ChannelHeader\\(",
          "     ChannelHeader\\[0x[0-9a-f]+\\]::~ChannelHeader\\(",
          "CH03 ReentrancyHelper\\[0x[0-9a-f]+\\]::ReentrancyHelper\\(flag:sending\\): flag is true\n",
          "CH03 ReentrancyHelper\\[0x[0-9a-f]+\\]::~ReentrancyHelper\\(flag:sending\\): flag is false\n"})
        EXPECT_TRUE(std::regex_search(log, std::regex(line))) << line << log;
}
