#include <sys/stat.h>

#include "tests/shared/daemon_process.h"

namespace {

ProgramResult runDaemon(const TemporaryFolder& run, const std::vector<std::string>& arguments,
                        const std::string& segment = "vintakd_e2e_none", const std::string& kernel = "") {
    std::vector<std::string> variables{"RUN=" + run.path(), "VINTAKD_SEGMENT=" + segment,
                                       "VINTAKD_TRACE_SWITCH=-"};
    if (!kernel.empty()) variables.push_back("VINTAKD_KELT_KERNEL=" + kernel);
    return runProgram(VINTAKD_BINARY, arguments, variables);
}

}  // namespace

TEST(Daemon, HelpPrintsTheOptionsAndTouchesNothing) {
    const TemporaryFolder run;
    const ProgramResult result = runDaemon(run, {"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "Allowed options:\n"
              "  --help                produce help message\n"
              "  --servers arg (=4)    number of server processes\n"
              "  --syslog              log messages through syslog\n"
              "  --debug               enable debug log level\n\n");
    EXPECT_TRUE(std::filesystem::is_empty(run.path()));
}

TEST(Daemon, WhatItCannotDoIsRefusedWithAMessage) {
    const TemporaryFolder run;
    const struct {
        std::vector<std::string> arguments;
        int status = 2;
        const char* message = "vintakd: ";
        const char* kernel = "";
        const char* segment = "vintakd_e2e_none";
    } cases[] = {{{"--nonsense"}},
                 {{"--servers", "many"}},
                 {{"--servers", "0"}},
                 {{"--servers", "-3"}},
                 {{"--servers"}},
                 {{"--servers", "1001"}},
                 {{"--servers", "99999999999"}},
                 {{"word"}},
                 {{}, 3, "abacus", "abacus"},
                 {{}, 3, "the segment \"a/b\" could not be made: Invalid argument\n", "", "a/b"}};
    for (const auto& [arguments, status, message, kernel, segment] : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments) + kernel);
        const ProgramResult result = runDaemon(run, arguments, segment, kernel);
        EXPECT_EQ(result.status, status);
        EXPECT_TRUE(contains(result.errors, message));
        EXPECT_TRUE(std::filesystem::is_empty(run.path()));
    }
}

TEST(Daemon, StartMessageStatesTheSizes) {
    DaemonProcess daemon;
    const std::string page = std::to_string(sysconf(_SC_PAGESIZE));
    const std::string size = std::to_string(16384 + sysconf(_SC_PAGESIZE));
    const std::string log = daemon.log();
    EXPECT_TRUE(contains(log, "vintakd start\nI: Shared Memory Size: " + size +
                                  "\nI: Header Size: 48\nI: Header Size (Rounded): " + page +
                                  "\nI: Channel Size: 16384\nI: Channel Count: 1\n"));
}

TEST(Daemon, SecondDaemonOfARunDirectoryIsRefused) {
    DaemonProcess first;
    EXPECT_EQ(readFile(first.folder() / "vintakd.pid"), std::to_string(first.pid()));
    EXPECT_EQ(readFile(first.folder() / "vintakd.lock"), "lock");
    const ProgramResult second = runDaemon(first.folder(), {});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, std::string(VINTAKD_BINARY) + " is already running\n");
    EXPECT_EQ(readFile(first.folder() / "vintakd.pid"), std::to_string(first.pid()));

    const TemporaryFolder otherRun;
    const ProgramResult third = runDaemon(otherRun, {}, first.segment());
    EXPECT_EQ(third.status, 3) << "another run directory, but the segment has an owner";
    EXPECT_TRUE(contains(third.errors, first.segment()));

    DaemonProcess neighbour;  // has both of its own
    for (DaemonProcess* daemon : {&first, &neighbour}) {
        EXPECT_TRUE(vintakd::ping(daemon->gateway()));
        EXPECT_EQ(daemon->stop(SIGTERM), 0);
        EXPECT_FALSE(std::filesystem::exists("/dev/shm/" + daemon->segment()));
    }
}

TEST(Daemon, RunDirectoryThatCannotBeWrittenIsSaid) {
    // The daemon starts in its run directory, where somebody has taken the lock file's name.
    const DaemonProcess daemon({"--servers", "1"}, [] { mkdir("vintakd.lock", 0700); });
    EXPECT_TRUE(contains(daemon.log(),
                         "vintakd runs with no lock and no pid file: " +
                             (daemon.folder() / "vintakd.lock: Is a directory (the folder is RUN's: ")));
}

TEST(Daemon, LogWithoutAPlaceGoesIntoNoOtherFile) {
    const DaemonProcess daemon({"--servers", "1"}, [] { close(STDERR_FILENO); });
    EXPECT_EQ(readFile(daemon.folder() / "vintakd.lock"), "lock");
}

TEST(Daemon, NoUmaskLetsOthersWriteItsFiles) {
    const DaemonProcess daemon({"--servers", "1"}, [] { umask(0); });
    for (const std::string& file :
         {daemon.folder() / "vintakd.pid", daemon.folder() / "vintakd.lock", "/dev/shm/" + daemon.segment()})
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0644)) << file;
}

TEST(Daemon, SignalsStopItInOrder) {
    for (const int signal : {SIGTERM, SIGINT}) {
        DaemonProcess daemon({"--servers", "3"});
        const int servant = daemon.servantPid();
        EXPECT_EQ(daemon.stop(signal), 0);
        EXPECT_FALSE(std::filesystem::exists(daemon.folder() / "vintakd.pid"));
        EXPECT_FALSE(std::filesystem::exists(daemon.folder() / "vintakd.lock"));
        EXPECT_FALSE(std::filesystem::exists("/dev/shm/" + daemon.segment()));
        EXPECT_NE(kill(servant, 0), 0);
        const std::string log = daemon.log();
        EXPECT_TRUE(contains(log, "GatewaySupervisor::stopServer()"));
        EXPECT_TRUE(
            contains(log, "Servant " + std::to_string(servant) + " (0) ended with the daemon after "));
        EXPECT_FALSE(contains(log, "SIGINT")) << "a stop is no death: ";
    }
}

TEST(Daemon, DaemonThatWasKilledIsFollowedByAWorkingOne) {
    DaemonProcess daemon;
    const int servant = daemon.servantPid();
    EXPECT_EQ(daemon.stop(SIGKILL), -1);
    EXPECT_TRUE(eventually([&] { return kill(servant, 0) != 0; })) << "servants end with their daemon";
    daemon.start();
    EXPECT_TRUE(vintakd::ping(daemon.gateway()));
    EXPECT_EQ(readFile(daemon.folder() / "vintakd.pid"), std::to_string(daemon.pid()));
}

TEST(Daemon, DeathOfAServantIsExplained) {
    DaemonProcess daemon;
    const int servant = daemon.servantPid();
    kill(servant, SIGKILL);
    EXPECT_TRUE(eventually([&] { return daemon.servantPid() > 0 && daemon.servantPid() != servant; }));
    const std::string number = std::to_string(servant);
    const std::string log = daemon.log();
    EXPECT_TRUE(contains(log, "Servant " + number + " exited for channel (0) respawning"));
    EXPECT_TRUE(contains(log, "Purging channel affter crash/kill of servant " + number + " (0)"));
    EXPECT_TRUE(contains(log, "Servant " + number + " (0) was killed by SIGKILL (Killed) after "));
    EXPECT_TRUE(vintakd::ping(daemon.gateway()));
}
