#include "vintakd/ipc/Gateway.h"

#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "tests/shared/open_gateway.h"
#include "tests/vintakd/ipc/segment_fixture.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/processes.h"

namespace {

class GatewayTest : public testing::Test {
protected:
    GatewayTest() { m_owner.setTimeout(2000, true); }

    /// Marks a channel connected and silent for the given time.
    void connect(size_t index, int32_t servantPid, int64_t silentSeconds) {
        m_owner.entry(index) = {ChannelState::connected, servantPid, getpid(), gettid()};
        timeval now{};
        while (gettimeofday(&now, nullptr), now.tv_usec > 900'000) {  // whole seconds are compared
        }
        m_owner.getChannel(index).header().lastSeconds = now.tv_sec - silentSeconds;
    }

    SegmentName m_name;
    OpenTable<GatewayBase> m_owner{m_name.c_str(), segmentSize(2), kTestChannelSize, 2, true};
};

/// A child that waits for signals.
pid_t idleProcess() {
    const pid_t pid = fork();
    if (pid == 0) {
        for (;;)
            pause();
    }
    return pid;
}

bool diedOfKill(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

/// Answers one knock on a channel.
std::thread knockAnswerer(GatewayBase& owner, size_t index) {
    return std::thread([&owner, index] {
        owner.getChannel(index).recv(5000);
        owner.getChannel(index).send("Who's there?", 12, 5000);
    });
}

}  // namespace

TEST_F(GatewayTest, ExistingNameIsRefusedOrAttachedTo) {
    EXPECT_THROW(GatewayBase(m_name.c_str(), segmentSize(5), kTestChannelSize, 5, true),
                 SharedMemoryAlreadyExistsException);
    const GatewayBase attached(m_name.c_str(), segmentSize(5), kTestChannelSize, 5, false);
    EXPECT_EQ(attached.channelCount(), 2u);
    EXPECT_THROW(Gateway("vintakd_test_of_no_such_name"), SharedMemoryDoesNotExistsException);
}

TEST_F(GatewayTest, HeaderThatLiesIsNoGateway) {
    for (const uint64_t count : {uint64_t{0}, uint64_t{3}, ~uint64_t{0}}) {
        m_owner.header().channelCount = count;
        EXPECT_THROW(Gateway(m_name.c_str()), SharedMemoryDoesNotExistsException) << count;
    }
    m_owner.header().channelCount = 2;
    for (const uint64_t size : {uint64_t{0}, uint64_t{100}, uint64_t{16385}, ~uint64_t{0}}) {
        m_owner.header().channelSize = size;
        EXPECT_THROW(Gateway(m_name.c_str()), SharedMemoryDoesNotExistsException) << size;
    }
}

TEST_F(GatewayTest, SegmentDoesNotBecomeAStandardFileOfItsProcess) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const Gateway client(m_name.c_str());
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "where the next file may come to lie";
    if (input >= 0) dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(GatewayTest, SegmentBeyondTheMachineIsRefusedAndLeavesNoName) {
    const SegmentName huge;
    const uint64_t count = uint64_t{1} << 31;
    EXPECT_THROW(GatewayBase(huge.c_str(), segmentSize(count), kTestChannelSize, count, false),
                 std::runtime_error);
    EXPECT_THROW(Gateway client(huge.c_str()), SharedMemoryDoesNotExistsException);
}

TEST_F(GatewayTest, SilenceLongerThanTheTimeoutIsPurged) {
    m_owner.setTimeout(20000, true);
    const pid_t servant = idleProcess();
    connect(0, servant, 20);
    connect(1, 0, 22);
    m_owner.purgeTimedoutChannels();
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::connected);
    EXPECT_EQ(m_owner.entry(1).state, ChannelState::purging);
    EXPECT_EQ(kill(servant, 0), 0);

    connect(0, servant, 22);
    m_owner.purgeTimedoutChannels();
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::purging);
    EXPECT_TRUE(diedOfKill(servant));

    connect(0, 0, 1000);
    m_owner.getChannel(0).setTimeout(ipc::no_timeout);
    m_owner.purgeTimedoutChannels();
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::connected) << "a channel without limit is never purged";
}

TEST_F(GatewayTest, ChannelsOfAClientThatIsGoneArePurgedAtOnce) {
    const pid_t servant = idleProcess(), client = fork();
    if (client == 0) _exit(0);
    connect(0, servant, 0);
    m_owner.entry(0).clientPid = client;
    m_owner.purgeChannelsOf(getpid());
    connect(1, 0, 0);
    m_owner.purgeChannelsOf(getpid());
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::connected);
    EXPECT_EQ(m_owner.entry(1).state, ChannelState::connected) << "a client that lives keeps its channel";
    waitpid(client, nullptr, 0);
    m_owner.purgeChannelsOf(client);
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::purging);
    EXPECT_EQ(m_owner.entry(1).state, ChannelState::connected);
    EXPECT_TRUE(diedOfKill(servant));
}

TEST_F(GatewayTest, SilentServantIsKilledAndTheNextOneServes) {
    const pid_t servant = idleProcess();
    m_owner.entry(0).servantPid = servant;
    auto answerer = knockAnswerer(m_owner, 1);
    Gateway client(m_name.c_str());
    EXPECT_EQ(client.reserveChannel(), 1u);
    answerer.join();
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::purging);
    EXPECT_TRUE(diedOfKill(servant));

    std::thread([&] { client.releaseChannel(1); }).join();
    EXPECT_EQ(m_owner.entry(1).state, ChannelState::connected) << "another thread's channel is left alone";
    m_owner.entry(1).state = ChannelState::purging;
    client.releaseChannel(1);
    EXPECT_EQ(m_owner.entry(1).state, ChannelState::purging);
}

TEST_F(GatewayTest, AnswerWithItsTerminatorFailsTheCheck) {
    std::thread servant([&] {
        m_owner.getChannel(0).recv(5000);
        m_owner.getChannel(0).send("Who's there?", 13, 5000);
    });
    Gateway client(m_name.c_str());
    EXPECT_FALSE(client.checkServant(client.getChannel(0), 5000));
    servant.join();
}

TEST_F(GatewayTest, ErrorNoticeToACheckPassesAndFreesTheLock) {
    std::thread servant([&] {
        m_owner.getChannel(0).recv(5000);
        m_owner.getChannel(0).send_error(5000);
    });
    Gateway client(m_name.c_str());
    EXPECT_THROW(client.reserveChannel(), ipc::UserException);
    servant.join();
    EXPECT_EQ(m_owner.header().spinLock.load(), 0);
    EXPECT_EQ(m_owner.entry(0).state, ChannelState::free);
}

TEST_F(GatewayTest, TableIsFreeForOthersWhileAClientKnocks) {
    uint8_t lock = 1;
    ChannelEntry slot{};
    std::thread servant([&] {
        m_owner.getChannel(0).recv(5000);
        lock = m_owner.header().spinLock;
        slot = m_owner.entry(0);
        m_owner.getChannel(0).send("Who's there?", 12, 5000);
    });
    Gateway client(m_name.c_str());
    EXPECT_EQ(client.reserveChannel(), 0u);
    servant.join();
    EXPECT_EQ(lock, 0);
    EXPECT_EQ(slot.state, ChannelState::connected);
    EXPECT_EQ(slot.clientThreadId, gettid());
}

TEST_F(GatewayTest, ServantThatDiesWhenItIsKnockedAtIsPassedOver) {
    const pid_t dead = fork();
    if (dead == 0) _exit(0);
    waitpid(dead, nullptr, 0);
    const pid_t next = idleProcess();
    for (const bool tellsTheClient : {true, false}) {
        m_owner.entry(0) = {ChannelState::free, dead, 0, 0};
        std::thread supervisor([&] {
            m_owner.getChannel(0).recv(5000);
            m_owner.entry(0).servantPid = next;
            if (tellsTheClient) m_owner.getChannel(0).send_error(5000);
        });
        auto answerer = knockAnswerer(m_owner, 1);
        Gateway client(m_name.c_str());
        EXPECT_EQ(client.reserveChannel(), 1u);
        supervisor.join();
        answerer.join();
        client.releaseChannel(1);
        EXPECT_EQ(m_owner.entry(0).state, ChannelState::free) << "the servant after it is not to blame";
    }
    EXPECT_EQ(kill(next, 0), 0);
    kill(next, SIGKILL);
    EXPECT_TRUE(diedOfKill(next));
}

TEST_F(GatewayTest, LocksInDeadHandsAreForcedFreeEachInItsTime) {
    ipc::SpinLockByte& header = m_owner.getChannel(1).header().spinLock;
    ipc::SpinLockByte& table = m_owner.header().spinLock;
    GatewayBase::LockTimes times;
    header = 1;
    EXPECT_EQ(m_owner.lookAtLocks(100, times).headers, 0U);
    table = 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(110));
    EXPECT_EQ(m_owner.lookAtLocks(100, times).headers, 1U);
    EXPECT_EQ(header.load(), 0);
    EXPECT_EQ(table.load(), 1) << "seen for the first time";
    std::this_thread::sleep_for(std::chrono::milliseconds(110));
    EXPECT_TRUE(m_owner.lookAtLocks(100, times).table);
    EXPECT_EQ(table.load(), 0);

    table = header = 1;  // both at once
    EXPECT_FALSE(m_owner.checkSpinLock(50));
    EXPECT_EQ(table.load(), 0);
    EXPECT_EQ(header.load(), 0);
    header = 1;
    EXPECT_TRUE(m_owner.checkSpinLock(50));
    EXPECT_EQ(header.load(), 1) << "nobody waited for it";
    header = 0;
}

TEST_F(GatewayTest, TableInTheHandsOfAKilledProcessIsForcedFreeAtTheNextLook) {
    ipc::LockOwner& owner = m_owner.header().lockOwner;
    const pid_t child = fork();
    if (child == 0) {
        OpenGateway client(m_name.c_str());
        const auto lock = client.lockTable();
        for (;;)
            pause();
    }
    while (owner == 0)
        std::this_thread::yield();
    const uint64_t held = owner;
    constexpr int kLimit = 60'000;
    GatewayBase::LockTimes times;
    EXPECT_FALSE(m_owner.lookAtLocks(kLimit, times).table) << "its holder lives";
    kill(child, SIGKILL);
    siginfo_t death{};
    waitid(P_PID, static_cast<id_t>(child), &death, WEXITED | WNOWAIT);  // a zombie holds nothing either
    owner = held ^ uint64_t { 1 } << 40;
    EXPECT_FALSE(m_owner.lookAtLocks(kLimit, times).table) << "pids of another namespace say nothing";
    owner = 0;
    EXPECT_FALSE(m_owner.lookAtLocks(kLimit, times).table) << "a client that does not say who it is";
    owner = held;
    EXPECT_TRUE(m_owner.lookAtLocks(kLimit, times).table);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(m_owner.header().spinLock.load(), 0);
    EXPECT_EQ(owner, 0U) << "the next holder would be taken for this one";
    owner = held;  // nobody holds the lock
    EXPECT_FALSE(m_owner.lookAtLocks(kLimit, times).table);
    {
        const auto lock = m_owner.lockTable();
        EXPECT_EQ(owner, ipc::ownerHere());
    }
    EXPECT_EQ(owner, 0U);
}

TEST_F(GatewayTest, HolderWhoseFirstThreadHasEndedLives) {
    const pid_t child = fork();
    if (child == 0) {
        std::thread([this] {
            OpenGateway client(m_name.c_str());
            const auto lock = client.lockTable();
            for (;;)
                pause();
        }).detach();
        syscall(SYS_exit, 0);  // this thread alone, and nothing is unwound
    }
    while (m_owner.header().lockOwner == 0)
        std::this_thread::yield();
    while (processLives(child))  // as it looks: a zombie
        std::this_thread::yield();
    GatewayBase::LockTimes times;
    EXPECT_FALSE(m_owner.lookAtLocks(60'000, times).table);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(m_owner.lookAtLocks(60'000, times).table);
}

TEST_F(GatewayTest, HolderOfTheTableThatWaitsForADeadHeaderLockKeepsTheTable) {
    // As a client of another make does it: the header's lock is waited for without limit, under the table's.
    ipc::SpinLockByte& header = m_owner.getChannel(0).header().spinLock;
    header = 1;
    m_owner.header().spinLock = 1;
    std::thread client([&] {
        while (header != 0)
            std::this_thread::yield();
        m_owner.header().spinLock = 0;
    });
    EXPECT_TRUE(m_owner.checkSpinLock(200));
    header = 0;
    client.join();
}

TEST_F(GatewayTest, ChannelThatLooksLikeARenewalForTooLongIsKnockedAt) {
    m_owner.entry(1).state = ChannelState::purging;
    m_owner.getChannel(0).setStatus(ipc::Channel::kStatusRenew);
    m_owner.getChannel(0).updateLastCommunication();
    std::thread servant([this] {
        m_owner.getChannel(0).recv(20000);
        m_owner.getChannel(0).send("Who's there?", 12, 20000);
    });
    OpenGateway client(m_name.c_str());
    client.setTimeout(20000, false);
    EXPECT_EQ(client.reserveChannel(), 0U);
    servant.join();
}

TEST_F(GatewayTest, SegmentOfAnotherAccountIsNotAllowed) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const pid_t child = fork();
    if (child == 0) {
        int result = 1;
        try {
            if (setresuid(65534, 65534, 65534) == 0) Gateway(m_name.c_str());
        } catch (const SharedMemoryNotAllowedException&) {
            result = 0;
        } catch (...) {
            result = 2;
        }
        _exit(result);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(GatewayTest, ClientWithoutATimeoutDoesNotWaitForADaemonThatIsGone) {
    connect(0, 0, 0);
    connect(1, 0, 0);
    Gateway client(m_name.c_str());
    EXPECT_THROW(client.reserveChannel(), ConnectionTimeoutException);
    client.setTimeout(200, false);  // with one it waits for it
    EXPECT_THROW(client.reserveChannel(), ConnectionTimeoutException);
    EXPECT_EQ(m_owner.header().spinLock.load(), 0);
    client.setTimeout(-1, false);
    m_owner.header().spinLock = 1;
    EXPECT_THROW(client.reserveChannel(), ConnectionTimeoutException);
    EXPECT_THROW(client.releaseChannel(0), TimeoutException);
}

TEST_F(GatewayTest, TableAndDumpShowTheSegment) {
    connect(1, 12, 0);
    m_owner.entry(1).clientPid = 34;
    m_owner.entry(1).clientThreadId = 56;
    m_owner.getChannel(1).header().lastSeconds = 78;
    m_owner.getChannel(1).header().lastMicroseconds = 9;
    testing::internal::CaptureStdout();
    m_owner.printTable();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "2 pieces of 16384 bytes sized channels.\n  0: server(0) free\n"
              "  1: server(12) connected 78.9 (client pid/tid: 34/56)\n");

    const std::string path = testing::TempDir() + m_name.c_str() + ".dump";
    m_owner.dumpTo(path.c_str());
    EXPECT_EQ(std::filesystem::file_size(path), segmentSize(2));
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    std::filesystem::remove(path);
    for (const char* nowhere : {"/dev/full", "/nonexistent/dump"})
        EXPECT_THROW(m_owner.dumpTo(nowhere), std::runtime_error) << nowhere;
}
