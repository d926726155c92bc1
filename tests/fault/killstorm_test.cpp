#include <map>
#include <random>
#include <regex>
#include <set>

#include "tests/fault/loadclient.h"

using namespace std::chrono_literals;

namespace {

constexpr unsigned kClients = 8;
constexpr unsigned kServants = 8;
constexpr auto kStorm = 60s;
constexpr auto kCalm = 1s;
// A call waits at the longest for a channel, for the servant to take the request, and for the answer: 20
// seconds each. The rest is for a machine that has other things to do.
constexpr auto kLongestCall = 90s;

class KillStorm : public testing::Test {
protected:
    KillStorm() {
        for (unsigned i = 0; i < kClients; ++i)
            m_clients.emplace_back(m_folder, i, m_daemon.gateway());
    }

    /// Lets all clients work while `disturb` goes on; their reports.
    std::vector<LoadReport> runClients(unsigned seed, const std::function<void()>& disturb) {
        SharedFlag stop;
        std::vector<Child> children;
        for (unsigned i = 0; i < kClients; ++i)
            children.push_back(m_clients[i].start(m_daemon.segment(), stop, seed + i));
        disturb();
        stop.set();
        const auto limit = Clock::now() + kLongestCall;
        std::vector<LoadReport> reports;
        for (unsigned i = 0; i < kClients; ++i) {
            const auto report = LoadClient::report(children[i], limit);
            EXPECT_TRUE(report) << "client " << i << " was lost";
            reports.push_back(report.value_or(LoadReport{}));
            EXPECT_EQ(reports.back().mistakes, "") << "client " << i;
        }
        return reports;
    }

    /// One line for each death, and those of servants at work name a client's object.
    void expectEveryDeathExplained(const std::set<pid_t>& killed) {
        const std::string log = m_daemon.log();
        std::map<pid_t, int> lines;
        size_t atWork = 0;
        // A sanitizer takes SIGSEGV for a fault of the program, and makes it an exit.
        const std::regex death(R"(Servant (\d+) \(\d+\) (was killed by SIG|exited with )[^\n]*)");
        const std::regex serving(R"(, [0-9.]+ s into serving ([^\n;]*))");
        for (std::sregex_iterator at(log.begin(), log.end(), death), end; at != end; ++at) {
            ++lines[std::stoi((*at)[1])];
            const std::string line = at->str();
            std::smatch request;
            if (!std::regex_search(line, request, serving)) continue;
            ++atWork;
            EXPECT_EQ(request.str(1).find(m_folder / "object"), 0u) << line;
        }
        for (const pid_t pid : killed)
            EXPECT_EQ(lines[pid], 1) << "lines about the death of " << pid;
        EXPECT_GT(atWork, 0u) << "no death in a request was told";
    }

    DaemonProcess m_daemon{{"--servers", std::to_string(kServants)}};
    TemporaryFolder m_folder;
    std::vector<LoadClient> m_clients;
};

}  // namespace

TEST_F(KillStorm, EveryRequestEndsInItsRightAnswerOrInAnException) {
    const char* given = getenv("VINTAKD_TEST_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::stoul(given)) : std::random_device{}();
    RecordProperty("seed", static_cast<int>(seed));
    printf("VINTAKD_TEST_SEED=%u\n", seed);
    std::mt19937 random(seed);
    std::set<pid_t> killed;
    const std::vector<LoadReport> reports = runClients(seed, [&] {
        const auto end = Clock::now() + kStorm;
        constexpr int kSignals[] = {SIGKILL, SIGSEGV, SIGTERM};
        while (Clock::now() < end) {
            killed.insert(m_daemon.signalServant(kSignals[random() % 3], random() % kServants));
            usleep(random() % 60'000);
        }
    });
    long exceptions = 0, answers = 0, slowest = 0;
    for (const LoadReport& report : reports) {
        exceptions += report.exceptions;
        answers += report.answers;
        slowest = std::max(slowest, report.slowest);
    }
    killed.erase(0);  // no servant was there
    printf("%zu servants killed, %ld answers, %ld exceptions, slowest call %ld ms\n", killed.size(), answers,
           exceptions, slowest);
    EXPECT_GT(exceptions, 0) << "no kill hit a request, so nothing was tested";
    EXPECT_LT(slowest, std::chrono::milliseconds(kLongestCall).count());

    // Afterwards all is as if nothing had been.
    EXPECT_TRUE(eventually([&] { return m_daemon.allFree(); }));
    expectEveryDeathExplained(killed);
    for (const LoadReport& report : runClients(seed, [] { std::this_thread::sleep_for(kCalm); }))
        EXPECT_EQ(report.exceptions, 0);
}
