#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "hsutils/ServiceNotifier.h"
#include "vintakd/ipc/GatewayBase.h"
#include "vintakd/pool/IdleBell.h"
#include "vintakd/pool/PoolMetrics.h"
#include "vintakd/pool/ReadyPipe.h"
#include "vintakd/pool/Servant.h"
#include "vintakd/pool/ServantLimits.h"
#include "vintakd/pool/ServantSlot.h"
#include "vintakd/pool/SupervisorSignals.h"
#include "vintakd/pool/servantdeath.h"
#include "vintakd/pool/servantduty.h"

/// The daemon's process pool, and the gateway segment that it created: one servant process per channel, from
/// startServers() to stopServers(). Everything here runs on the daemon's main thread.
///
/// A channel becomes free only when its servant has reported ready; until then its entry is "purging" with
/// servant pid 0, which no client touches or kills. The segment's spin lock is held from the first moment of
/// the segment until the whole pool is ready.
class ServantPool : public GatewayBase {
public:
    /// Creates the segment (as GatewayBase does). `name` must outlive the pool.
    ServantPool(const char* name, uint64_t smSize, uint64_t channelSize, uint64_t channelCount,
                bool throwIfSMExists);

    /// What every servant that is started from now on may use; nothing is limited before.
    void setLimits(const ServantLimits& limits) { m_limits = limits; }
    /// Where the pool's figures are written at intervals while it is supervised; no file before.
    void setMetricsFile(std::string path) { m_metrics.setFile(std::move(path)); }

    /// Forks all servants and waits until they are ready; true. Throws std::runtime_error when one cannot be
    /// forked or ends before it is ready.
    bool startServers();
    /// Forks the servant of one channel; true. Throws std::runtime_error. A servant process never returns
    /// from here.
    bool startServer(size_t index);
    /// Reaps, cleans and respawns, and ends servants whose request runs past its deadline or whose client has
    /// left them at work, until exitFlag is 1.
    void supervise();
    /// Makes the channel of a dead servant usable again. False when it has to wait: a client that could not
    /// be told still holds the channel, and to reset the region under it could hand it another client's
    /// answer.
    bool purgeChannel(size_t index);
    /// Ends all servants (SIGINT, after a moment SIGKILL) and tells the clients that still wait.
    void stopServers();

    int segmentFile() const { return segmentDescriptor(); }

protected:
    virtual std::unique_ptr<Servant> makeServant() = 0;

private:
    using Clock = std::chrono::steady_clock;

    [[noreturn]] void becomeServant(size_t index);
    void serverProcess(size_t index);
    void awaitReady();
    void readReadyReports();
    void markReady(size_t index, pid_t pid);
    void reapDead();
    void onServantDeath(size_t index, const siginfo_t& death);
    void forgetServant(size_t index);
    rusage reapServant(size_t index);
    void logDeath(size_t index, const ServantDeath& death);
    void writeMetrics();
    void watchRequests();
    bool clientIsGone(size_t index);
    bool resetChannel(size_t index, bool evenIfConnected);
    void lookAgain();
    void startOrPostpone(size_t index);
    void tryStart(size_t index);
    void waitForEvents(std::chrono::milliseconds longest);
    std::chrono::milliseconds untilNextLook();
    bool somethingPending() const;
    bool somethingGoesOn();
    void forgetServants();
    void notifyWaitingClients();

    /// Runs an action on the channel table under the segment's spin lock, which during start-up is held
    /// already. A lock that cannot be had in time is no reason to end: it is logged and tried again.
    template <class Action>
    void withTable(Action action) {
        if (m_holdsTable) {
            action();
            return;
        }
        const auto lock = lockTableAtLast();
        action();
    }
    ipc::SpinGuard lockTableAtLast();

    /// How long a client is given to take the notice that its servant is dead.
    static constexpr ipc::timeout kErrorNotice{100};
    static constexpr ipc::timeout kShortNotice{1};

    ServantReports m_reports;
    PoolMetrics m_metrics;
    ServantLimits m_limits = ServantLimits::none();
    std::vector<ServantSlot> m_slots;
    bool m_holdsTable = true;
    SupervisorSignals m_signals;
    ServiceNotifier m_notifier;
    ReadyPipe m_readyPipe;
    IdleBell m_bell;
    int m_idleLooks = 0;  ///< on end in which nothing was going on
};
