#include <sys/prctl.h>

#include <algorithm>
#include <cstring>
#include <future>

#include "pool_fixture.h"

// Peers that die or fall silent at the worst moment, and signals that arrive there.

using namespace std::chrono_literals;

TEST_F(PoolTest, BarrierMutexInDeadHandsIsFoundAtTheNextKnock) {
    start(1);
    const int32_t before = m_gateway->servant(0);
    const pid_t client = fork();
    if (client == 0) {
        char* region = m_gateway->getChannel(0).getPayloadPointer() - sizeof(ipc::BareChannel::ControlBlock);
        pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(region + 8));
        _exit(0);
    }
    waitpid(client, nullptr, 0);
    EXPECT_EQ(ask("after"), "after");
    EXPECT_NE(m_gateway->servant(0), before);
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
