#include <fcntl.h>
#include <sys/stat.h>

#include "tests/fault/processes.h"
#include "tools/phantom/phantomobject.h"

using namespace std::chrono_literals;

namespace {

constexpr int kChannelTimeout = 1000;
constexpr auto kTimelyEnd = 15s;  // of a call whose time-outs are 1 second each

class StoppedServants : public testing::Test {
protected:
    StoppedServants() {
        writePhantom(m_folder / "one", {1, 32});
        writePhantom(m_folder / "two", {1, 48});
        m_answer = query("two").send(m_daemon.gateway());
        m_daemon.setChannelTimeouts(kChannelTimeout);
    }

    TestRequest query(const std::string& object) const {
        TestRequest query{.input = m_folder / object, .tags = {0x0008, 0x0018, 0x0028, 0x0010}};
        return query;
    }

    /// What a client process gets for a request: the answer, or the exception's name.
    static std::string outcome(Gateway& gateway, const TestRequest& request) {
        std::string answer;
        const std::string failure = failureOf([&] { answer = request.send(gateway); });
        return failure.empty() ? answer : failure;
    }

    void signalAll(int signal) {
        for (size_t i = 0; i < kServants; ++i)
            EXPECT_GT(m_daemon.signalServant(signal, i), 0);
    }

    static constexpr size_t kServants = 2;
    DaemonProcess m_daemon{{"--servers", std::to_string(kServants)}};
    TemporaryFolder m_folder;
    std::string m_answer;
};

}  // namespace

TEST_F(StoppedServants, ClientsGetAnErrorAndTheNextOnesTheirAnswers) {
    for (const bool continued : {false, true}) {
        SCOPED_TRACE(continued);
        // The clients have their channels when the servants stop.
        std::vector<Child> clients;
        for (size_t i = 0; i < kServants; ++i) {
            clients.emplace_back([&] {
                ReservedChannel reserved(m_daemon.gateway());
                m_daemon.signalServant(SIGSTOP, reserved.index());
                return failureOf([&] {
                    ipc::Channel& channel = m_daemon.gateway().getChannel(reserved.index());
                    channel.send("PING", 5);
                    channel.recv();
                });
            });
        }
        for (Child& client : clients)
            EXPECT_EQ(client.text(Clock::now() + kTimelyEnd), "time-out");
        if (continued) signalAll(SIGCONT);

        Child next([&] { return query("two").send(m_daemon.gateway()); });
        EXPECT_EQ(next.text(Clock::now() + kTimelyEnd), m_answer);
        Child last([&] {
            ReservedChannel first(m_daemon.gateway()), second(m_daemon.gateway());
            return "both channels serve";
        });
        EXPECT_EQ(last.text(Clock::now() + kTimelyEnd), "both channels serve");
        m_daemon.setChannelTimeouts(kChannelTimeout);
    }
}

TEST_F(StoppedServants, AnswerThatComesTooLateIsNobodysAnswer) {
    // A pipe without a reader keeps the servant in the middle of its work.
    const std::string pipe = m_folder / "out_1.raw";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    TestRequest conversion{.input = m_folder / "one", .output = m_folder / "out"};
    Child late([&] { return outcome(m_daemon.gateway(), conversion); });
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(m_folder / "out.desc"); }));
    const size_t channel = m_daemon.gateway().entry(0).state == ChannelState::connected ? 0 : 1;
    const pid_t stopped = m_daemon.signalServant(SIGSTOP, channel);
    ASSERT_GT(stopped, 0);
    EXPECT_EQ(late.text(Clock::now() + kTimelyEnd), "time-out");

    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::vector<Child> next;
    m_daemon.signalServant(SIGCONT, channel);
    for (size_t i = 0; i < kServants; ++i)
        next.emplace_back([&] { return outcome(m_daemon.gateway(), query("two")); });
    for (Child& client : next) {
        const auto text = client.text(Clock::now() + kTimelyEnd);
        EXPECT_TRUE(text == m_answer || text == "error notice" || text == "clash" || text == "time-out")
            << text.value_or("hangs");
    }
    Child calm([&] { return outcome(m_daemon.gateway(), query("two")); });
    EXPECT_EQ(calm.text(Clock::now() + kTimelyEnd), m_answer);
    close(reader);
}

TEST_F(StoppedServants, OneThatGetsOnIsNotTakenForStopped) {
    // Each frame's file is a pipe that is read half a second after the one before: together that takes longer
    // than a channel may be silent, by more than the seconds are rounded.
    constexpr int kSilence = 3000;
    constexpr int kFrames = 10;
    writePhantom(m_folder / "many", {kFrames, 16});
    const auto pipe = [&](int frame) { return m_folder / ("many_" + std::to_string(frame) + ".raw"); };
    for (int frame = 1; frame <= kFrames; ++frame)
        ASSERT_EQ(mkfifo(pipe(frame).c_str(), 0600), 0);
    m_daemon.setChannelTimeouts(kSilence);

    Child client([&] {
        vintakd::VintakMsgIn request{};
        for (char* path : {request.inputFile, request.outputPrefix, request.cachePrefix})
            (m_folder / "many").copy(path, vintakd::kTextFieldSize - 1);
        request.writeMask = 4;  // raw pixels alone
        ReservedChannel reserved(m_daemon.gateway());
        ipc::Channel& channel = m_daemon.gateway().getChannel(reserved.index());
        std::string answer;
        const std::string failure = failureOf([&] {
            channel.send(&request, sizeof request);
            answer = channel.recv(60'000).getPointer();
        });
        return failure + answer;
    });
    Child reader([&] {
        for (int frame = 1; frame <= kFrames; ++frame) {
            std::this_thread::sleep_for(500ms);
            m_daemon.gateway().purgeTimedoutChannels();  // as everybody does who looks for a channel
            EXPECT_EQ(readFile(pipe(frame)).size(), 16u * 16u * 2u);
        }
        return testing::Test::HasFailure() ? "too short" : "all read";
    });
    EXPECT_EQ(client.text(Clock::now() + std::chrono::seconds{60}), "<<<ISO_IR 100>>>");
    EXPECT_EQ(reader.text(Clock::now() + std::chrono::seconds{60}), "all read");
}
