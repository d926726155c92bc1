#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "hsutils/errorclass.h"
#include "tools/backfill/LedgerFile.h"
#include "tools/backfill/Owner.h"

/// An object that was claimed.
struct LedgerObject {
    int64_t id = 0;
    std::string path;    ///< below the archive
    int64_t size = 0;    ///< bytes, when it was listed
    unsigned tries = 0;  ///< that came to nothing so far
};

/// An object that is in a broker's queue, or done.
struct SubmittedObject {
    int64_t id = 0;
    std::string path;  ///< below the archive
    int64_t at = 0;    ///< seconds since 1970
};

/// What a row is to say of an object.
struct LedgerOutcome {
    int64_t id = 0;
    ObjectState state = ObjectState::done;
    ErrorClass errorClass = ErrorClass::none;
    std::string cause{};  ///< or the first warning of one that is done
    unsigned tries = 0;
    int64_t at = 0;       ///< of one that waits: not before this second since 1970
    double seconds = 0;   ///< that it took
    int64_t written = 0;  ///< bytes of results
};

/// One worker's hands in a ledger: it claims objects, and records what became of them. Several processes may
/// do so at once. A claim belongs to its worker for as long as the worker lives and renews its lease; nothing
/// is recorded of an object that is not the worker's any more. For one thread. Every call throws LedgerError.
class Ledger {
public:
    static constexpr int64_t kLease = 120;  ///< seconds

    /// Takes its place among the workers. `self` is for tests.
    explicit Ledger(Database ledger, const Owner& self = Owner::self());
    /// Lets go what is left.
    ~Ledger();
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    /// Takes up to `most` objects that wait and whose time has come, in the order of the listing.
    std::vector<LedgerObject> claim(size_t most, int64_t now);
    /// Writes down what became of objects, all at once; `active` are the seconds of work since the last call.
    void record(const std::vector<LedgerOutcome>& outcomes, int64_t now, double active = 0);
    /// The oldest objects that were handed to a broker: since when is `at` of each.
    std::vector<SubmittedObject> submitted(size_t most);
    /// Writes down what became of such ones, whoever handed them over.
    void recordSubmitted(const std::vector<LedgerOutcome>& outcomes, int64_t now, double active);
    /// Gives back what was claimed and has not been recorded.
    void release();
    /// Keeps what is claimed for another lease. False: somebody took it away meanwhile, for this process was
    /// silent for too long; nothing is claimed then. `note` says how it is, for who looks.
    bool renew(int64_t now, const std::string& note);
    /// Gives back what workers hold that are gone, or did not renew; how many objects that were.
    int64_t heal(int64_t now);
    /// The pids of workers on this host of which heal() has found that they are gone, since the last call.
    std::vector<pid_t> takeGone() { return std::exchange(m_gone, {}); }

    /// Whether objects wait, are claimed, by whomever, or are in a broker's queue.
    bool isAnyLeft();
    /// Objects that wait or are claimed.
    int64_t waiting();
    int64_t count(ObjectState state);
    /// Whether an operator has stopped all workers of this ledger for a while.
    bool isPaused();

    Database& database() { return m_database; }

private:
    using TotalKey = std::pair<ObjectState, int64_t>;
    struct Change {
        int64_t objects = 0, bytes = 0, written = 0;
    };

    void enter(int64_t now);
    void stay(int64_t now);
    void write(const std::vector<LedgerOutcome>& outcomes, ObjectState from, int64_t now, double active);
    int64_t causeOf(const LedgerOutcome& outcome);
    void addToTotals(const std::map<TotalKey, Change>& changes);

    Database m_database;
    Owner m_self;
    int64_t m_owner = 0;
    bool m_isLost = false;  ///< others took what was claimed before
    std::vector<pid_t> m_gone;
    Statement m_select, m_take, m_settle, m_findCause, m_addCause, m_countCauses, m_total, m_progress, m_stay,
        m_note;
};
