#include <sys/syscall.h>

#include "tests/fault/processes.h"
#include "tests/vintakd/ipc/raw_peer.h"
#include "tests/vintakd/ipc/segment_fixture.h"
#include "tools/phantom/phantomobject.h"

using namespace std::chrono_literals;

namespace {

/// The steps of one request, and places between messages.
enum class Phase { lockTaken, knock, whosThere, reserved, request, answer, answered };

struct Step {
    const char* name;
    Phase phase;
    RawPeer::Place place = RawPeer::Place::flagSet;
    bool holdsTable = false;  ///< the table's lock dies with the client
};

constexpr Step kSteps[] = {
    {"channel reserved", Phase::reserved},
    {"request announced", Phase::request, RawPeer::Place::flagSet},
    {"first barrier's mutex held", Phase::request, RawPeer::Place::mutexHeld},
    {"in the first barrier", Phase::request, RawPeer::Place::arrived},
    {"inside the request's chunks", Phase::request, RawPeer::Place::insideChunks},
    {"at the request's last barrier", Phase::request, RawPeer::Place::beforeLastBarrier},
    {"waiting for the answer", Phase::answer, RawPeer::Place::flagSet},
    {"answer's barrier's mutex held", Phase::answer, RawPeer::Place::mutexHeld},
    {"in the answer's barrier", Phase::answer, RawPeer::Place::arrived},
    {"inside the answer's chunks", Phase::answer, RawPeer::Place::insideChunks},
    {"at the answer's last barrier", Phase::answer, RawPeer::Place::beforeLastBarrier},
    {"answer had, channel not released", Phase::answered},
    {"the table's lock taken", Phase::lockTaken, {}, true},
    {"inside the knock", Phase::knock, RawPeer::Place::arrived, true},
    {"inside the answer to the knock", Phase::whosThere, RawPeer::Place::beforeLastBarrier, true},
};

/// A client that knows the segment's bytes only, and is killed at a step of its request.
class DyingClient : private RawPeer {
public:
    DyingClient(char* segment, const Step& step)
        : RawPeer(segment + 32 + 16), m_segment(segment), m_step(step) {}

    void ask(const std::string& request) {
        auto* lock = reinterpret_cast<uint8_t*>(m_segment + 16);
        while (__atomic_exchange_n(lock, 1, __ATOMIC_SEQ_CST) != 0)
            sched_yield();
        enter(Phase::lockTaken);
        enter(Phase::knock);
        send("Knock, knock.");
        enter(Phase::whosThere);
        recv();
        reserve();
        __atomic_store_n(lock, 0, __ATOMIC_SEQ_CST);
        enter(Phase::reserved);
        enter(Phase::request);
        send(request);
        enter(Phase::answer);
        recv();
        enter(Phase::answered);
    }

private:
    void enter(Phase phase) {
        m_phase = phase;
        const bool message = phase == Phase::knock || phase == Phase::whosThere || phase == Phase::request ||
                             phase == Phase::answer;
        if (!message && phase == m_step.phase) raise(SIGKILL);
    }

    void reached(Place place) override {
        if (m_phase == m_step.phase && place == m_step.place) raise(SIGKILL);
    }

    void reserve() {
        auto* entry = reinterpret_cast<uint32_t*>(m_segment + 32);
        entry[0] = 1;
        entry[2] = static_cast<uint32_t>(getpid());
        entry[3] = static_cast<uint32_t>(syscall(SYS_gettid));
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const int64_t seconds = now.tv_sec;
        std::memcpy(m_segment + 32 + 16 + 160, &seconds, sizeof seconds);
    }

    char* m_segment;
    const Step& m_step;
    Phase m_phase = Phase::lockTaken;
};

/// A dump of `object` as bytes, with so much after it that it needs several chunks.
std::string dumpRequest(const std::string& object) {
    std::string bytes(40000, '\0');
    bytes.replace(0, object.size(), object);
    bytes[3072] = bytes[3073] = 1;
    return bytes;
}

}  // namespace

/// At a request of the servant's like others, and at its last, when it says that it is about to go.
class ClientDeath : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Requests, ClientDeath, testing::Bool(),
                         [](const auto& instance) { return instance.param ? "Last" : "Any"; });

TEST_P(ClientDeath, ChannelServesAgainWhereverItsClientDied) {
    constexpr int kChannelTimeout = 1000;
    const TemporaryFolder folder;
    const std::string object = folder / "object";
    writePhantom(object, {60, 16});  // its dump needs several chunks
    TestRequest dump{.input = object};
    dump.verbose = dump.dumponly = true;

    struct Case {
        const Step& step;
        std::unique_ptr<DaemonProcess> daemon;
        std::string answer;
        std::unique_ptr<Child> next;
    };
    std::vector<Case> cases;
    for (const Step& step : kSteps) {
        Case& current = cases.emplace_back(Case{step, std::make_unique<DaemonProcess>(), {}, {}});
        current.answer = dump.send(current.daemon->gateway());
        EXPECT_GT(current.answer.size(), 20000u);
        const int served = static_cast<int>(current.daemon->countInLog("vintakd received ("));
        const int all = GetParam() ? requestsOfServant(current.daemon->servantPid()) : 0;
        for (int left = all - served; left > 1; --left)
            vintakd::ping(current.daemon->gateway());
        current.daemon->setChannelTimeouts(kChannelTimeout);
        Child dying([&] {
            DyingClient(RawSegment(current.daemon->segment()).bytes(), step).ask(dumpRequest(object));
            return "";
        });
        ASSERT_EQ(dying.waitForEnd(), SIGKILL) << step.name;
    }
    // The time-outs of all daemons run side by side.
    for (Case& current : cases) {
        current.next = std::make_unique<Child>([&] { return dump.send(current.daemon->gateway()); });
    }
    const auto start = Clock::now();
    for (Case& current : cases) {
        // A channel: its time-out, in whole seconds, and the pause of a reservation. The table's lock: ten
        // seconds, and the checker's pauses. The rest is the machine's.
        const auto limit = start + (current.step.holdsTable ? 19s : 10s);
        const auto text = current.next->text(limit);
        EXPECT_TRUE(text) << current.step.name << ": the channel does not serve any more";
        EXPECT_TRUE(!text || *text == current.answer) << current.step.name << ": " << text->substr(0, 300);
        printf("%-35s %5ld ms\n", current.step.name,
               static_cast<long>(
                   std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count()));
    }
}
