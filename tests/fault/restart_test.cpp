#include <sys/wait.h>

#include "tests/fault/loadclient.h"

using namespace std::chrono_literals;

TEST(Restart, ClientsGetErrorsAndThenAnswersWhenTheDaemonIsKilled) {
    constexpr unsigned kClients = 8;
    constexpr int kRounds = 3;
    DaemonProcess daemon({"--servers", "3"});
    const TemporaryFolder folder;
    std::vector<LoadClient> clients;
    for (unsigned i = 0; i < kClients; ++i)
        clients.emplace_back(folder, i, daemon.gateway());

    SharedFlag stop;
    std::vector<Child> children;
    for (unsigned i = 0; i < kClients; ++i)
        children.push_back(clients[i].start(daemon.segment(), stop, i, true));
    for (int round = 0; round < kRounds; ++round) {
        daemon.gateway().setTimeout(1000, true);  // a client is not to wait long for a dead servant
        usleep(700'000);
        daemon.stop(SIGKILL);
        daemon.start();
    }
    stop.set();
    const auto limit = Clock::now() + std::chrono::seconds{60};
    long exceptions = 0;
    for (unsigned i = 0; i < kClients; ++i) {
        const auto report = LoadClient::report(children[i], limit);
        ASSERT_TRUE(report) << "client " << i << " hangs or was never served again";
        EXPECT_EQ(report->mistakes, "") << "client " << i;
        exceptions += report->exceptions;
    }
    EXPECT_GT(exceptions, 0) << "no client noticed";
}

TEST(Restart, OfTwoDaemonsThatStartAtOnceOneServes) {
    for (int round = 0; round < 5; ++round) {
        const TemporaryFolder run;
        const std::string segment = "vintakd_fault_" + std::to_string(getpid());
        pid_t pids[2];
        for (pid_t& pid : pids) {
            pid = fork();
            if (pid != 0) continue;
            setenv("RUN", run.path().c_str(), 1);
            setenv("VINTAKD_SEGMENT", segment.c_str(), 1);
            execl(VINTAKD_BINARY, VINTAKD_BINARY, "--servers", "1", nullptr);
            _exit(127);
        }
        int status = 0;
        const pid_t loser = waitpid(-1, &status, 0);  // the other one does not end by itself
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 1) << "already running";
        EXPECT_TRUE(eventually([&] {
            try {
                OpenGateway gateway(segment.c_str());
                gateway.setTimeout(20000, false);
                return vintakd::ping(gateway);
            } catch (const SharedMemoryDoesNotExistsException&) {
                return false;
            }
        }));
        const pid_t winner = pids[0] == loser ? pids[1] : pids[0];
        EXPECT_EQ(readFile(run / "vintakd.pid"), std::to_string(winner));
        kill(winner, SIGTERM);
        EXPECT_EQ(waitpid(winner, &status, 0), winner);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        GatewayBase::remove(segment.c_str());
    }
}
