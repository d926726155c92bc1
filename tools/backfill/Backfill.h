#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "hsutils/ServiceNotifier.h"
#include "tools/backfill/Hours.h"
#include "tools/backfill/Ledger.h"
#include "tools/backfill/Listing.h"
#include "tools/backfill/Pace.h"
#include "tools/feeding/WorkerPool.h"

/// How an archive is worked off.
struct BackfillOptions {
    std::string archive;  ///< absolute
    size_t jobs = 1;
    size_t ahead = 0;     ///< given out beyond those, for whoever becomes free
    size_t batch = 1000;  ///< objects that are claimed at a time, and so the most that a kill can cost
    unsigned tries = 5;   ///< of an object that may do better later
    double rate = 0;      ///< objects a second at the most; 0: as many as go
    Hours hours{};
    /// How many objects may be given out now; nothing for as many as there are workers. May throw
    /// std::runtime_error: nobody is there to ask. Asked once a second at the most.
    std::function<size_t()> room = nullptr;
    /// Whether the results of an object are there that was handed over at `at` or later; nothing where none
    /// ever is.
    std::function<bool(const std::string& path, int64_t at)> isDone = nullptr;
    /// Told the pid of each worker on this host that was found gone, to free what it held elsewhere; false to
    /// be told again in a second.
    std::function<bool(pid_t)> onGone = nullptr;
    int64_t patience = 7200;  ///< seconds after which an object that was handed over has failed
};

/// The loop that leads an archive's objects from a ledger through workers. One thread decides and holds the
/// ledger; the workers work.
class Backfill {
public:
    using Clock = std::chrono::steady_clock;
    using Say = std::function<void(const std::string&)>;

    /// Borrows all. `say` gets a line for the log. Throws LedgerError.
    Backfill(const BackfillOptions& options, Ledger& ledger, const Listing& listing, SpoolWork& work,
             Say say);

    /// Works until nothing is left that could be done and the listing is over, or until `stops` says so,
    /// which is asked a few times a second; what runs then is finished and recorded. Throws LedgerError.
    void run(const std::function<bool()>& stops);

private:
    void round(bool takesMore);
    void refill();
    bool holds(int64_t id) const;
    void giveOut();
    void wait() const;
    void settle(const FinishedWork& finished);
    void tryLater(const WorkResult& result, LedgerOutcome outcome);
    void pause(const std::string& cause);
    void hold(LedgerObject object, const std::string& cause);
    void record(bool now);
    void askForRoom();
    void follow();
    void look();
    void tellGone();
    bool isOver();
    bool mayGive() const { return !m_paused && m_inHours && Clock::now() >= m_pausedUntil; }
    std::string note() const;

    const BackfillOptions& m_options;
    Ledger& m_ledger;
    const Listing& m_listing;
    Say m_say;
    WorkerPool m_pool;
    ServiceNotifier m_notifier;
    Pace m_pace;

    std::deque<LedgerObject> m_hand;                     ///< claimed, not given out
    std::unordered_map<int64_t, LedgerObject> m_atWork;  ///< by id
    std::vector<LedgerOutcome> m_outcomes;               ///< not recorded yet
    Clock::time_point m_pausedUntil, m_claimDue, m_recordDue, m_lookDue, m_healDue, m_sayDue, m_since,
        m_roomDue, m_followDue;
    unsigned m_pauses = 0;      ///< without a success in between
    std::vector<pid_t> m_gone;  ///< workers whose servants are not free yet
    std::string m_pauseCause, m_note;
    bool m_paused = false;  ///< by an operator
    bool m_inHours = true;
    size_t m_room = 0;            ///< objects that may be given out before the next question
    bool m_isHandedOver = false;  ///< some are in the hands of others
    double m_active = 0;          ///< seconds that are not recorded yet
    int64_t m_settled = 0;
};
