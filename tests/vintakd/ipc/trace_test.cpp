#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <sstream>

#include "tests/shared/testing.h"
#include "vintakd/ipc/Channel.h"
#include "vintakd/ipc/VintakLog.h"
#include "vintakd/ipc/ipcexceptions.h"

TEST(Trace, SwitchReachesOtherProcessesAndEachWritesItsOwnFile) {
    const std::string name = "/vintaklog_test_" + std::to_string(getpid());
    const TemporaryFolder folder;
    const std::string prefix = folder / "trace";
    setenv("VINTAKD_TRACE_SWITCH", name.c_str(), 1);
    setenv("VINTAKD_TRACE_PREFIX", prefix.c_str(), 1);

    EXPECT_FALSE(VintakLog::IsEnabled());  // creates the switch, off
    struct stat status {};
    const int file = shm_open(name.c_str(), O_RDONLY, 0);
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

    const std::string path = prefix + "." + std::to_string(child) + ".log";
    std::ifstream log(path);
    std::string line;
    std::getline(log, line);
    const std::string id = std::to_string(child);
    EXPECT_TRUE(std::regex_match(line, std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6} \\[" +
                                                  id + " / " + id + "\\] from the child")))
        << line;
    shm_unlink(name.c_str());
}

TEST(Trace, ChannelsAndTheirGuardsSayWhatTheyDo) {
    const std::string name = "/vintaklog_test_" + std::to_string(getpid());
    const TemporaryFolder folder;
    setenv("VINTAKD_TRACE_SWITCH", name.c_str(), 1);
    setenv("VINTAKD_TRACE_PREFIX", (folder / "trace").c_str(), 1);
    ASSERT_TRUE(VintakLog::Enable(true));
    alignas(16) char memory[512] = {};
    {
        ipc::Channel channel(memory, sizeof memory, true, 3);
        EXPECT_THROW(channel.send("x", 1, 10), TimeoutException);
    }
    VintakLog::Enable(false);
    shm_unlink(name.c_str());
    std::ifstream file(folder / ("trace." + std::to_string(getpid()) + ".log"));
    const std::string log{std::istreambuf_iterator<char>(file), {}};
    for (const char* line :
         {"     ChannelHeader\\[0x[0-9a-f]+\\]::ChannelHeader\\(",
          "     ChannelHeader\\[0x[0-9a-f]+\\]::~ChannelHeader\\(",
          "CH03 ReentrancyHelper\\[0x[0-9a-f]+\\]::ReentrancyHelper\\(flag:sending\\): flag is true\n",
          "CH03 ReentrancyHelper\\[0x[0-9a-f]+\\]::~ReentrancyHelper\\(flag:sending\\): flag is false\n"})
        EXPECT_TRUE(std::regex_search(log, std::regex(line))) << line << log;
}
