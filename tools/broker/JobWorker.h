#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hsutils/ServiceNotifier.h"
#include "tools/broker/BrokerConnection.h"
#include "tools/broker/BrokerQueues.h"
#include "tools/broker/Job.h"
#include "tools/broker/JobInputs.h"
#include "tools/broker/Settlements.h"
#include "tools/broker/WorkFigures.h"
#include "tools/feeding/WorkerPool.h"

/// How a broker's jobs are worked off.
struct JobWorkerOptions {
    BrokerOptions broker{};
    std::string name{};  ///< of this worker, in events, dead letters and the broker's lists
    size_t jobs = 0;     ///< at the same time; 0: as many as there are servants
    /// Jobs that are held beyond those at work, so that whoever is free need not wait till the broker has
    /// taken an acknowledgement; as many as are at work where nothing is said.
    std::optional<size_t> ahead{};
    unsigned tries = 5;     ///< of a job that may do better later
    std::string metrics{};  ///< the file for the figures; empty for none
};

/// The loop that leads a broker's jobs through this host's daemon. A job is acknowledged when its results are
/// complete and its event is safe with the broker; whatever happens before that, somebody does it again. One
/// thread talks to the broker; the workers work.
class JobWorker {
public:
    using Clock = std::chrono::steady_clock;

    /// Borrows `work`. `servants` says how many servants there are, 0 while nobody would do the work. `say`
    /// gets a line for the log. Throws BrokerOptionsError.
    JobWorker(const JobWorkerOptions& options, JobInputs& work, std::function<size_t()> servants,
              std::function<void(const std::string&)> say);
    ~JobWorker();

    /// Works until `stops` says so, which is asked a few times a second; what runs then is finished. With
    /// `untilEmpty` also when the queues of jobs and of those to be done again are empty.
    void run(const std::function<bool()>& stops, bool untilEmpty);

private:
    /// A job in our hands.
    struct Delivery {
        uint64_t tag = 0;
        uint64_t connection = 0;  ///< which the tag belongs to
        unsigned tries = 0;       ///< that came to nothing so far
        BrokerMessage message{};  ///< as it goes back
        Job job{};
    };

    void round(bool takesMore);
    void wait();
    /// Does what may lose the connection.
    void guarded(const std::function<void()>& what);
    void lost(const std::string& cause);
    void connect();
    void takeWork();
    bool isIdle();
    void hear();
    void take(BrokerEvent event);
    void giveOut();
    void settle(const FinishedWork& finished);
    void done(const Delivery& delivery, const SpoolObject& object, const WorkResult& result);
    void failed(const Delivery& delivery, const SpoolObject& object, const WorkResult& result);
    void tryLater(const Delivery& delivery, const WorkResult& result);
    void bury(const Delivery& delivery, const SpoolObject* object, const WorkResult& result);
    void giveBack(const Delivery& delivery);
    void announce(const Delivery& delivery, const SpoolObject& object, const WorkResult& result,
                  std::vector<uint64_t>& numbers);
    void pause(const std::string& cause);
    void stopConsuming();
    /// What nobody has begun with waits again.
    void withdraw();
    void writeFigures(bool now);

    const JobWorkerOptions& m_options;
    JobInputs& m_work;
    std::function<size_t()> m_servants;
    std::function<void(const std::string&)> m_say;
    BrokerQueues m_queues;
    ServiceNotifier m_notifier;
    WorkFigures m_figures;

    std::unique_ptr<WorkerPool> m_pool;
    size_t m_poolSize = 0;
    std::unique_ptr<BrokerConnection> m_connection;
    uint64_t m_connections = 0;  ///< so far, this one counted
    bool m_isConsuming = false;
    Settlements m_settlements;
    std::map<uint64_t, Job> m_finished;  ///< that are done, by tag
    std::deque<Delivery> m_waiting;
    std::map<uint64_t, Delivery> m_atWork;  ///< by ticket
    uint64_t m_tickets = 0;

    Clock::time_point m_connectDue;
    unsigned m_losses = 0;  ///< without a delivery in between
    Clock::time_point m_pausedUntil;
    unsigned m_pauses = 0;  ///< without a success in between
    Clock::time_point m_figuresDue;
    Clock::time_point m_idleCheckDue;
    bool m_complained = false;
};
