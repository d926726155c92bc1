#include <algorithm>
#include <map>

#include "hsutils/Utils.h"
#include "tests/fault/processes.h"
#include "tools/phantom/phantomobject.h"

using namespace std::chrono_literals;

namespace {

/// What a process holds.
struct Holdings {
    long kilobytes = 0;  ///< of memory that is its own
    long descriptors = 0;

    explicit Holdings(pid_t pid) {
        const std::string process = "/proc/" + std::to_string(pid);
        std::ifstream file(process + "/status");
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("RssAnon:")) kilobytes = std::stol(line.substr(8));
        }
        std::error_code gone;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(process + "/fd", gone))
            ++descriptors;
    }
};

/// The holdings of a process over time. Its first quarter is for what a process gets once and keeps.
class Growth {
public:
    void add(pid_t pid) {
        const Holdings now(pid);
        if (now.kilobytes > 0) m_samples.push_back(now);
    }
    /// None but for `kilobytes`: far less than a few bytes for each ping that the process saw.
    void expectNone(const std::string& whose, long kilobytes) const {
        const size_t quarter = m_samples.size() / 4;
        ASSERT_GT(quarter, 0u);
        const Holdings early = largest(0, 2 * quarter);
        const Holdings late = largest(m_samples.size() - quarter, m_samples.size());
        if (!kSanitized) {  // a sanitizer keeps freed memory back
            EXPECT_LE(late.kilobytes, early.kilobytes + kilobytes) << whose;
        }
        EXPECT_LE(late.descriptors, early.descriptors) << whose;
    }

private:
    Holdings largest(size_t from, size_t to) const {
        Holdings result = m_samples[from];
        for (size_t i = from; i < to; ++i) {
            result.kilobytes = std::max(result.kilobytes, m_samples[i].kilobytes);
            result.descriptors = std::max(result.descriptors, m_samples[i].descriptors);
        }
        return result;
    }

    std::vector<Holdings> m_samples;
};

}  // namespace

TEST(Endurance, AHundredThousandPingsCostNothing) {
    constexpr int kPings = 100'000;
    constexpr int kStride = 100;  // a servant lives for ten of them at least
    DaemonProcess daemon;
    Growth supervisor, client;
    std::map<pid_t, Growth> servants;
    std::map<pid_t, int> strides;
    for (int i = 0; i < kPings; ++i) {
        ASSERT_EQ(failureOf([&] { EXPECT_TRUE(vintakd::ping(daemon.gateway())); }), "")
            << i << daemon.log().substr(std::max<size_t>(daemon.log().size(), 5000) - 5000);
        if (i % kStride != 0) continue;
        supervisor.add(daemon.pid());
        client.add(getpid());
        const pid_t servant = daemon.servantPid();
        if (servant == 0) continue;
        servants[servant].add(servant);
        ++strides[servant];
    }
    supervisor.expectNone("supervisor", 64);
    client.expectNone("client", 64);
    size_t watched = 0;
    for (const auto& [pid, growth] : servants) {
        if (strides[pid] < 8) continue;  // the first and the last one
        growth.expectNone("servant", 8);
        ++watched;
    }
    EXPECT_GT(watched, 40u);
}

TEST(Endurance, NobodyLosesARequestToARenewal) {
    constexpr int kClients = 8;
    constexpr int kRequests = 2000;
    constexpr unsigned kServants = 2;
    DaemonProcess daemon({"--servers", std::to_string(kServants)});
    daemon.gateway().setTimeout(150'000, false);  // on a slow machine eight clients may have to queue
    const TemporaryFolder folder;
    std::vector<Child> clients;
    for (int i = 0; i < kClients; ++i) {
        const std::string object = folder / std::to_string(i);
        writePhantom(object, {1, 16u + 2 * static_cast<unsigned>(i)});
        clients.emplace_back([&, object] {
            TestRequest query{.input = object, .tags = {0x0008, 0x0018}};
            const std::string answer = query.send(daemon.gateway());
            for (int k = 0; k < kRequests; ++k) {
                bool answered = false;
                const std::string failure = failureOf([&] {
                    answered = k % 20 != 0 ? vintakd::ping(daemon.gateway())
                                           : query.send(daemon.gateway()) == answer;
                });
                if (!answered) return "request " + std::to_string(k) + ": wrong answer, or " + failure;
            }
            return std::string("all answered");
        });
    }
    for (Child& client : clients)
        EXPECT_EQ(client.text(Clock::now() + 300s), "all answered");
    EXPECT_GE(daemon.countInLog("serverProcess Retired after"),
              size_t{kClients * kRequests / 2000 - kServants});
}
