#include <sys/un.h>

#include <algorithm>

#include "hsutils/ServiceNotifier.h"
#include "tests/shared/testing.h"
#include "tests/vintakd/pool/pool_fixture.h"

using namespace std::chrono_literals;

// What the service manager hears of the daemon.

/// A service manager's ear, and its variables in our environment.
class Manager {
public:
    explicit Manager(std::string address) : m_address(std::move(address)) {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::copy(m_address.begin(), m_address.end(), name.sun_path);
        if (m_address[0] == '@') name.sun_path[0] = '\0';
        bind(m_file, reinterpret_cast<const sockaddr*>(&name),
             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_address.size()));
        setenv("NOTIFY_SOCKET", m_address.c_str(), 1);
    }
    ~Manager() {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(name);
        close(m_file);
        if (m_address[0] == '/') unlink(m_address.c_str());
    }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// The next message; empty when none has come, or none within 30 s when it has to.
    std::string hear(bool hasToCome = true) const {
        const timeval limit{.tv_sec = 30, .tv_usec = 0};
        setsockopt(m_file, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        char text[256];
        const ssize_t size = recv(m_file, text, sizeof text, hasToCome ? 0 : MSG_DONTWAIT);
        return {text, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

private:
    int m_file = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::string m_address;
};

TEST_F(PoolTest, TellsTheServiceManagerThatItStandsLivesAndStops) {
    const TemporaryFolder folder;
    for (const std::string& address : {folder / "notify", "@vintakd_test_" + std::to_string(getpid())}) {
        const Manager manager(address);
        setenv("WATCHDOG_USEC", "40000", 1);
        start(2);
        EXPECT_EQ(manager.hear(), "READY=1\nSTATUS=serving with 2 servants");
        EXPECT_EQ(manager.hear(), "WATCHDOG=1");
        EXPECT_EQ(manager.hear(), "WATCHDOG=1");
        EXPECT_EQ(ask("manager"), "none") << "a servant may speak for the daemon";
        EXPECT_EQ(stop(SIGTERM), 0);
        std::string last;
        for (std::string next = manager.hear(); !next.empty(); next = manager.hear(false))
            last = next;
        EXPECT_EQ(last, "STOPPING=1\nSTATUS=stopping");
        m_gateway.reset();
        GatewayBase::remove(m_name.c_str());
    }
}

TEST(ServiceNotifier, FeedsNoWatchdogOfAnotherAndSendsNothingToNobody) {
    struct Case {
        const char* pid;
        const char* microseconds;
        bool feeds;
    };
    const std::string own = std::to_string(getpid());
    for (const Case& c :
         {Case{own.c_str(), "20000", true}, {"1", "20000", false}, {own.c_str(), "20000x", false}}) {
        const Manager manager("@vintakd_test_" + own);
        setenv("WATCHDOG_PID", c.pid, 1);
        setenv("WATCHDOG_USEC", c.microseconds, 1);
        ServiceNotifier notifier;
        EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr);
        EXPECT_EQ(getenv("WATCHDOG_USEC"), nullptr);
        EXPECT_EQ(notifier.pause(1000ms), c.feeds ? 5ms : 1000ms);
        std::this_thread::sleep_for(11ms);
        notifier.alive();
        notifier.alive();  // half of the time has to pass first
        EXPECT_EQ(manager.hear(false), c.feeds ? "WATCHDOG=1" : "");
    }
    for (const std::string& nobody :
         {std::string("@"), std::string("relative"), "/" + std::string(200, 'x')}) {
        setenv("NOTIFY_SOCKET", nobody.c_str(), 1);
        ServiceNotifier notifier;
        notifier.ready("nobody hears it");
        notifier.stopping();
        EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr);
    }
}
