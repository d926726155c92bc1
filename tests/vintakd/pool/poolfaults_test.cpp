#include <sys/prctl.h>

#include <algorithm>
#include <future>
#include <set>

#include "tests/vintakd/pool/pool_fixture.h"

// Peers that die or fall silent at the worst moment, and signals that arrive there.

using namespace std::chrono_literals;

namespace {

/// The ways in which a client may leave its channel.
constexpr struct {
    const char* name;
    void (*leave)(ipc::Channel&);  ///< the channel is released when it returns
} kLeavings[] = {
    {"reservation not used", [](ipc::Channel&) {}},
    {"died with an unused reservation", [](ipc::Channel&) { _exit(0); }},
    {"request sent, answer not waited for", [](ipc::Channel& channel) { channel.send("echo", 4); }},
    {"died with its request sent",
     [](ipc::Channel& channel) {
         channel.send("echo", 4);
         _exit(0);
     }},
    {"died waiting for its answer",
     [](ipc::Channel& channel) {
         channel.send("sleep", 5);
         ualarm(50'000, 0);
         channel.recv(ipc::no_timeout);
     }},
    {"died with its answer",
     [](ipc::Channel& channel) {
         channel.send("echo", 4);
         channel.recv(5000);
         _exit(0);
     }},
    {"time-out",
     [](ipc::Channel& channel) {
         channel.send("sleep", 5);
         channel.recv(100);
     }},
    {"user error", [](ipc::Channel& channel) { channel.send_error(5000); }},
    {"died in a user error",
     [](ipc::Channel& channel) {
         channel.setStatus(ipc::Channel::kStatusUserError);
         _exit(0);
     }},
    {"clash", [](ipc::Channel& channel) { channel.recv(5000); }},
};

}  // namespace

TEST_F(PoolTest, EveryChannelServesAgainHoweverItsLastClientsLeft) {
    constexpr size_t kWays = std::size(kLeavings);
    start(2 * kWays, 1000);  // each way at the last request of a servant, and at the last but one
    for (size_t i = 0; i < 2 * kWays; ++i) {
        ipc::Channel& channel = m_gateway->getChannel(i);
        // As a client's: a servant at work for nobody is ended after 5 s.
        m_gateway->entry(i) = {ChannelState::connected, m_gateway->servant(i), getpid(), gettid()};
        const auto ask = [&] {
            ASSERT_TRUE(m_gateway->checkServant(channel, 5000));
            channel.send("echo", 4, 5000);
            channel.recv(5000);
        };
        for (int left = requestsOfServant(m_gateway->servant(i)); left > (i < kWays ? 1 : 2); --left)
            ask();
        ASSERT_TRUE(m_gateway->checkServant(channel, 5000));
        const pid_t client = fork();
        if (client == 0) {
            m_gateway->entry(i) = {ChannelState::connected, m_gateway->servant(i), getpid(), gettid()};
            channel.updateLastCommunication();
            try {
                kLeavings[i % kWays].leave(channel);
            } catch (const TimeoutException&) {
            } catch (const ipc::ChannelException&) {
            }
            m_gateway->releaseChannel(i);
            _exit(0);
        }
        waitpid(client, nullptr, 0);
    }
    std::set<size_t> reserved;
    m_gateway->setTimeout(20'000, false);  // 5 s on a machine that does nothing else
    for (bool free = true; free && reserved.size() < 2 * kWays;) {
        for (const size_t index : reserved)  // or we would be taken for dead
            m_gateway->getChannel(index).updateLastCommunication();
        try {
            const size_t index = m_gateway->reserveChannel();
            reserved.insert(index);
            ipc::Channel& channel = m_gateway->getChannel(index);
            channel.send("echo", 4, 5000);
            EXPECT_EQ(channel.recv(5000).getSize(), 4u) << kLeavings[index % kWays].name;
        } catch (const ConnectionTimeoutException&) {
            free = false;
        }
    }
    for (size_t i = 0; i < 2 * kWays; ++i)
        EXPECT_TRUE(reserved.count(i))
            << kLeavings[i % kWays].name << (i < kWays ? ", last" : ", last but one");
}

TEST_F(PoolTest, ClientWithoutATimeoutKeepsItsRegionUntilItLetsGo) {
    start(1, -1);
    const size_t channel = m_gateway->reserveChannel();
    const int32_t servant = m_gateway->servant(channel);
    kill(servant, SIGKILL);  // nobody takes the notice
    ASSERT_TRUE(eventually([&] { return m_gateway->servant(channel) == 0; }));
    std::this_thread::sleep_for(6s);  // longer than the grace of a client that has a time-out
    EXPECT_EQ(m_gateway->state(channel), ChannelState::connected);
    m_gateway->releaseChannel(channel);
    EXPECT_EQ(ask("echo"), "echo");

    const pid_t client = fork();
    if (client == 0) {
        m_gateway->reserveChannel();
        _exit(0);
    }
    waitpid(client, nullptr, 0);
    EXPECT_EQ(ask("after its death"), "after its death");
}

TEST_F(PoolTest, ClientInsideAMessageToADeadServantIsLeftInPeaceUntilItGivesUp) {
    start(1, 1000);
    const size_t index = m_gateway->reserveChannel();
    ipc::Channel& channel = m_gateway->getChannel(index);
    const std::string text(3 * channel.chunkCapacity(), 'x');
    const char* source = text.data();
    uint64_t remaining = text.size();
    channel.header().sending = 1;
    channel.writePart(source, remaining, remaining);
    channel.sync(1000);
    channel.sync_fast(1000);
    kill(m_gateway->servant(0), SIGKILL);
    ASSERT_TRUE(eventually([&] { return m_gateway->servant(0) == 0; }));

    auto other = std::async(std::launch::async, [this] { return ask("other"); });
    channel.writePart(source, remaining, remaining);
    const auto goOn = [&channel] {
        for (int i = 0; i < 2; ++i)  // the servant may have died on either side of the next meeting
            channel.sync_fast(500);
    };
    EXPECT_THROW(goOn(), TimeoutException);
    EXPECT_EQ(m_gateway->state(0), ChannelState::connected) << "the channel was made new under its client";
    channel.header().sending = 0;
    m_gateway->releaseChannel(index);
    EXPECT_EQ(other.get(), "other");
    const char* data = channel.getPayloadPointer() + sizeof(ipc::Channel::ChannelHeader);
    EXPECT_EQ(std::count(data, data + channel.chunkCapacity(), 'x'), 0) << "what was sent is still there";
}

TEST_F(PoolTest, TableLockThatCannotBeHadIsLoggedAndTriedAgain) {
    start(1, 200);
    m_gateway->header().spinLock = 1;
    kill(m_gateway->servant(0), SIGKILL);
    EXPECT_TRUE(eventually(
        [&] { return log().find("could not be had in 200 ms; trying again") != std::string::npos; }));
    m_gateway->header().spinLock = 0;
    EXPECT_EQ(ask("after"), "after");
}

TEST_F(PoolTest, StopInTheMomentOfARespawnLeavesNobody) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (int round = 0; round < 12; ++round) {
        start(2);
        for (int i = 0; i < 2; ++i)
            kill(m_gateway->servant(static_cast<size_t>(i)), SIGKILL);
        std::this_thread::sleep_for(round * 250us);
        const int status = stop(round % 2 == 0 ? SIGTERM : SIGINT);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << round;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a servant outlived its daemon in round " << round;
        EXPECT_EQ(m_gateway->servant(0), 0);
        EXPECT_EQ(m_gateway->header().spinLock.load(), 0);
        GatewayBase::remove(m_name.c_str());
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(PoolTest, StopWhileThePoolIsStillStartingIsNotLost) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (int round = 0; round < 8; ++round) {
        launch(2);
        ASSERT_TRUE(eventually([this] { return attach(); }));
        EXPECT_EQ(WEXITSTATUS(stop(SIGTERM)), 0) << round;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a servant outlived its daemon in round " << round;
        GatewayBase::remove(m_name.c_str());
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(PoolTest, ServantAtWorkForNobodyIsEnded) {
    start(1);
    const size_t index = m_gateway->reserveChannel();
    m_gateway->getChannel(index).send("sleep", 5);
    m_gateway->releaseChannel(index);
    EXPECT_TRUE(eventually([&] { return log().find("; its client had gone; ") != std::string::npos; }));
    EXPECT_EQ(ask("after"), "after");
}
