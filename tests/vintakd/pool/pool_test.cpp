#include <fstream>
#include <set>

#include "tests/vintakd/pool/pool_fixture.h"

using namespace std::chrono_literals;

TEST_F(PoolTest, EveryChannelHasAServantOfItsOwn) {
    start(4);
    ASSERT_TRUE(eventually([&] { return m_gateway->servant(3) > 0; }));
    std::set<int32_t> pids;
    for (size_t i = 0; i < 4; ++i)
        pids.insert(m_gateway->servant(i));
    EXPECT_EQ(pids.size(), 4u);
    EXPECT_EQ(ask("echo"), "echo");

    ReservedChannel mine(*m_gateway);
    EXPECT_EQ(mine.index(), 0u);
    size_t others = 99;
    std::thread([&] {
        others = m_gateway->reserveChannel();
        m_gateway->releaseChannel(others);
    }).join();
    EXPECT_EQ(others, 1u);
}

TEST_F(PoolTest, ThrowingServantTellsItsClientAndLivesOn) {
    start(1);
    const int32_t before = m_gateway->servant(0);
    EXPECT_THROW(ask("throw"), ipc::UserException);
    EXPECT_EQ(ask("next"), "next");
    m_gateway->releaseChannel(m_gateway->reserveChannel());  // nor does a reservation without a request
    EXPECT_EQ(ask("last"), "last");
    EXPECT_EQ(m_gateway->servant(0), before);
}

TEST_F(PoolTest, ServantKilledUnderASilentClientDoesNotDisturbIt) {
    // The client holds the channel but is at no barrier: the notice cannot be delivered, and the region must
    // not be made new while the client may still step into it.
    start(1, 1000);
    const size_t index = m_gateway->reserveChannel();
    kill(m_gateway->servant(0), SIGKILL);
    ASSERT_TRUE(eventually([&] { return m_gateway->servant(0) == 0; }));
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(m_gateway->state(0), ChannelState::connected);
    m_gateway->releaseChannel(index);
    EXPECT_EQ(ask("after"), "after");
}

TEST_F(PoolTest, RetiredServantIsRenewed) {
    start(1);
    const int32_t first = m_gateway->servant(0);
    int served = 0;
    while (m_gateway->servant(0) == first && served < 2100) {
        try {
            ask("x");
            ++served;
        } catch (const ipc::UserException&) {  // reserved the servant in its last moment
        }
    }
    EXPECT_GE(served, 999);
    EXPECT_LE(served, 2000);
    EXPECT_EQ(m_gateway->getChannel(0).status() & ipc::Channel::kStatusRenew, 0u);
    EXPECT_EQ(ask("next"), "next");
    EXPECT_TRUE(contains(log(), "Purging channel after renewed servant " + std::to_string(first) + " (0)"))
        << "its end was not announced";
}

TEST_F(PoolTest, StopEndsEveryServantAndTellsWaitingClients) {
    start(2);
    kill(m_gateway->servant(1), SIGSTOP);  // would ignore a polite signal
    const int32_t pids[] = {m_gateway->servant(0), m_gateway->servant(1)};
    bool told = false;
    std::atomic<bool> sent{false};
    std::thread client([&] {
        ReservedChannel reserved(*m_gateway);
        ipc::Channel& channel = m_gateway->getChannel(reserved.index());
        channel.send("sleep", 5);
        sent = true;
        try {
            channel.recv();
        } catch (const ipc::UserException&) {
            told = true;
        }
    });
    eventually([&] { return sent.load(); });
    const int status = stop(SIGINT);
    client.join();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(told);
    for (const int32_t pid : pids)
        EXPECT_EQ(kill(pid, 0), -1) << pid;
    EXPECT_EQ(m_gateway->servant(0), 0);
}

namespace {

/// How often a process has gone to sleep.
long sleepsOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    const std::string name = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(name)) return std::stol(line.substr(name.size()));
    return -1;
}

}  // namespace

TEST_F(PoolTest, SupervisorOfAnIdlePoolSleepsAndHearsOfTheNextRequest) {
    ServantLimits limits = ServantLimits::none();
    limits.deadlineSeconds = 1;
    start(2, 20000, limits);
    long sleeps = 0;
    ASSERT_TRUE(eventually([&] {
        sleeps = sleepsOf(m_daemon);
        std::this_thread::sleep_for(2500ms);
        return sleepsOf(m_daemon) == sleeps;
    })) << "it looks though there is nothing to look at";
    const ipc::ElapsedTimer timer;
    EXPECT_THROW(ask("sleep"), ipc::UserException) << "the deadline is nobody's if the supervisor sleeps on";
    EXPECT_FALSE(timer.reached(4500)) << "five seconds at least are left until it looks by itself";
    EXPECT_EQ(ask("echo"), "echo");
}
