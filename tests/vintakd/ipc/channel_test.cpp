#include "vintakd/ipc/Channel.h"

#include <future>

#include "tests/shared/testing.h"
#include "vintakd/ipc/ipcexceptions.h"

namespace {

class ChannelTest : public testing::Test {
protected:
    static constexpr size_t kSize = 16384;

    alignas(16) char m_memory[kSize] = {};
    ipc::Channel m_servant{m_memory, kSize, true, 3};
    ipc::Channel m_client{m_memory, kSize, false, 3};

    void expectIdle() {
        EXPECT_EQ(m_client.status(), 0u);
        EXPECT_EQ(m_client.header().sending.load(), 0);
        EXPECT_EQ(m_client.header().receiving.load(), 0);
    }

    void expectWorks() {
        auto echo = std::async(std::launch::async, [this] {
            const ipc::Message message = m_servant.recv(5000);
            m_servant.send(message.getPointer(), message.getSize(), 5000);
        });
        m_client.send("hello", 5, 5000);
        const ipc::Message message = m_client.recv(5000);
        EXPECT_EQ(std::string(message.getPointer(), message.getSize()), "hello");
        echo.get();
    }
};

template <class Exception, class Action>
bool throws(Action action) {
    try {
        action();
    } catch (const Exception&) {
        return true;
    }
    return false;
}

}  // namespace

TEST_F(ChannelTest, TwoSendersClashAndTheNextExchangeWorks) {
    for (int round = 0; round < 20; ++round) {
        auto other = std::async(std::launch::async, [this] {
            return throws<ipc::CommunicationMismatchException>([this] { m_client.send("b", 1, 5000); });
        });
        EXPECT_TRUE(throws<ipc::CommunicationMismatchException>(
            [&] { round % 2 == 0 ? m_servant.send("a", 1, 5000) : m_servant.send_error(5000); }));
        EXPECT_TRUE(other.get());
        expectIdle();
        expectWorks();
    }
}

TEST_F(ChannelTest, ErrorNoticeReachesTheWaitingReceiver) {
    auto receiver = std::async(
        std::launch::async, [this] { return throws<ipc::UserException>([this] { m_client.recv(5000); }); });
    m_servant.send_error(5000);
    EXPECT_TRUE(receiver.get());
    expectIdle();
    expectWorks();
}

TEST_F(ChannelTest, LonelyPartyTimesOutAndLeavesNoTrace) {
    EXPECT_THROW(m_client.recv(30), TimeoutException);
    expectIdle();
    EXPECT_THROW(m_client.send("x", 1, 30), TimeoutException);
    expectIdle();
    EXPECT_THROW(m_client.send_error(30), TimeoutException);
    expectIdle();
    expectWorks();
}

TEST_F(ChannelTest, FlagLeftSetByADeadPeerIsReportedAfterTheTimeout) {
    m_client.header().sending.store(1);
    EXPECT_THROW(m_client.send("x", 1, 30), TimeoutException);
    EXPECT_EQ(m_client.status(), 0u);
}

TEST_F(ChannelTest, OwnTimeoutServesTheCallsWithoutOne) {
    m_servant.setTimeout(30);
    EXPECT_EQ(m_client.getTimeout().milliseconds(), 30);
    EXPECT_THROW(m_client.recv(), TimeoutException);
    EXPECT_THROW(m_client.send_error(), TimeoutException);
}

TEST_F(ChannelTest, MessageBeyondTheLimitIsTakenOffAndTheChannelStaysInStep) {
    m_servant.setReceiveLimit(20000);
    auto receiver = std::async(std::launch::async, [this] {
        const bool refused = throws<ipc::MessageTooLongException>([this] { m_servant.recv(5000); });
        m_servant.send("too long", 8, 5000);
        return refused;
    });
    const std::vector<char> large(20001, 'x');
    m_client.send(large.data(), large.size(), 5000);
    const ipc::Message answer = m_client.recv(5000);
    EXPECT_TRUE(receiver.get());
    EXPECT_EQ(std::string(answer.getPointer(), answer.getSize()), "too long");
    expectWorks();
}

TEST_F(ChannelTest, ReceivedDataIsGoneFromTheSegment) {
    for (const size_t size : {size_t{5}, m_client.chunkCapacity(), 2 * m_client.chunkCapacity() + 1}) {
        auto receiver = std::async(std::launch::async, [this] { return m_servant.recv(5000).getSize(); });
        const std::string text(size, 'P');
        m_client.send(text.data(), text.size(), 5000);
        EXPECT_EQ(receiver.get(), size);
        EXPECT_FALSE(contains(std::string(m_memory + 176, kSize - 176), "P")) << size;
    }
}

TEST_F(ChannelTest, HeaderLockInDeadHandsHoldsNobodyUpForLong) {
    m_client.header().spinLock = 1;
    EXPECT_EQ(m_client.getTimeout(), ipc::no_timeout);
    expectWorks();
    EXPECT_EQ(m_client.header().spinLock.load(), 1) << "whoever went on without the lock has none to release";
}

TEST_F(ChannelTest, ManyMessagesInBothDirectionsStayInOrder) {
    // Large messages take the spinning road, small ones the blocking one; a lapping party would lose or
    // repeat one.
    constexpr int kRounds = 300;
    auto servant = std::async(std::launch::async, [this] {
        for (int i = 0; i < kRounds; ++i) {
            const ipc::Message message = m_servant.recv(20000);
            m_servant.send(message.getPointer(), message.getSize(), 20000);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        const std::string text = std::to_string(i) + std::string(static_cast<size_t>(i) * 500, 'y');
        m_client.send(text.data(), text.size(), 20000);
        const ipc::Message echo = m_client.recv(20000);
        ASSERT_EQ(std::string(echo.getPointer(), echo.getSize()), text);
    }
    servant.get();
    EXPECT_GT(m_client.getLastCommunication().tv_sec, 0);
}
