#include "vintakd/pool/DaemonInfo.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/temporary_folder.h"

namespace {

class DaemonInfoTest : public testing::Test {
protected:
    DaemonInfoTest() { setenv("RUN", m_folder.c_str(), 1); }

    static std::string read(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    const TemporaryFolder m_temporary;
    const std::string m_folder = m_temporary.path();
};

/// What a second process sees when it tries to become the daemon.
int seenByAnotherProcess(bool checkOnly) {
    const pid_t child = fork();
    if (child == 0) {
        const VintakDaemonInfo info(checkOnly);
        _exit(info.isDeamonRunning() ? info.getDeamonPid() % 256 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

}  // namespace

TEST_F(DaemonInfoTest, OwnerHoldsBothFilesAndDeletesThem) {
    {
        const VintakDaemonInfo info(false);
        EXPECT_FALSE(info.isDeamonRunning());
        EXPECT_EQ(read(m_folder + "/vintakd.pid"), std::to_string(getpid()));
        EXPECT_EQ(seenByAnotherProcess(false), getpid() % 256);
        EXPECT_EQ(seenByAnotherProcess(true), getpid() % 256);
        EXPECT_EQ(read(m_folder + "/vintakd.pid"), std::to_string(getpid()));
        EXPECT_EQ(read(m_folder + "/vintakd.lock"),
                  "lock");  // last: the owner's second descriptor drops its lock
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_folder));
}

TEST_F(DaemonInfoTest, FilesOfADeadDaemonAreTakenOver) {
    std::ofstream(m_folder + "/vintakd.pid") << 1;
    std::ofstream(m_folder + "/vintakd.lock") << "lock";
    const VintakDaemonInfo info(false);
    EXPECT_FALSE(info.isDeamonRunning());
    EXPECT_EQ(read(m_folder + "/vintakd.pid"), std::to_string(getpid()));
}

TEST_F(DaemonInfoTest, FolderThatDoesNotExistLeavesAGuardWithoutFiles) {
    setenv("RUN", (m_folder + "/missing").c_str(), 1);
    const VintakDaemonInfo info(false);
    EXPECT_FALSE(info.isDeamonRunning());
    EXPECT_FALSE(std::filesystem::exists(m_folder + "/missing"));
    unsetenv("RUN");
    EXPECT_EQ(getRunPath("vintakd.pid"), "/vintakd.pid");
}
