#include "tools/backfill/Backfill.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "tools/feeding/RetryPolicy.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kRound{200};
constexpr seconds kRecord{1}, kLook{1}, kRoom{1}, kFollow{2}, kHeal{15}, kSay{60};
constexpr size_t kFollowed = 10000;
/// While there is nothing to claim.
constexpr milliseconds kClaim{100};

/// What a cause says of one object alone would make each its own in the ledger.
std::string withoutPath(std::string cause, const std::string& path) {
    for (size_t at = 0; !path.empty() && (at = cause.find(path, at)) != std::string::npos;)
        cause.replace(at, path.size(), "FILE");
    return cause;
}

int64_t bytesOf(const std::vector<SpoolOutput>& outputs) {
    int64_t bytes = 0;
    for (const SpoolOutput& output : outputs)
        bytes += static_cast<int64_t>(output.size);
    return bytes;
}

}  // namespace

Backfill::Backfill(const BackfillOptions& options, Ledger& ledger, const Listing& listing, SpoolWork& work,
                   Say say)
    : m_options(options),
      m_ledger(ledger),
      m_listing(listing),
      m_say(std::move(say)),
      m_pool(work, options.jobs, options.ahead),
      m_pace(options.rate),
      m_healDue(Clock::now() + kHeal),
      m_sayDue(Clock::now() + kSay),
      m_since(Clock::now()) {}

void Backfill::run(const std::function<bool()>& stops) {
    m_notifier.ready("working");
    while (!stops() && !isOver())
        round(true);
    m_notifier.stopping();
    for (const SpoolObject& object : m_pool.takeBack())
        m_hand.push_back(std::move(m_atWork.extract(static_cast<int64_t>(object.ticket)).mapped()));
    while (m_pool.atWork() > 0)
        round(false);
    record(true);
    m_ledger.release();
    if (m_listing.isOver() && !m_listing.failure().empty())
        m_say("the listing has stopped: " + m_listing.failure());
}

bool Backfill::isOver() {
    if (!m_hand.empty() || m_pool.atWork() > 0 || !m_outcomes.empty()) return false;
    return m_listing.isOver() && !m_ledger.isAnyLeft();
}

void Backfill::round(bool takesMore) {
    for (const FinishedWork& finished : m_pool.take())
        settle(finished);
    look();
    follow();
    record(m_hand.empty() && m_pool.atWork() == 0);
    if (takesMore && mayGive()) {
        refill();
        askForRoom();
        giveOut();
    }
    m_notifier.alive();
    wait();
}

void Backfill::wait() const {
    Clock::duration pause = kRound;
    if (m_pool.isFree() && !m_hand.empty() && mayGive() && (!m_options.room || m_room > 0))
        pause = std::clamp<Clock::duration>(m_pace.next() - Clock::now(), milliseconds(1), kRound);
    pollfd bell{.fd = m_pool.descriptor(), .events = POLLIN, .revents = 0};
    poll(&bell, 1, static_cast<int>(std::chrono::ceil<milliseconds>(pause).count()));
}

// What is claimed, in hand and at work, is never more than a batch. Near the end, and while the listing
// begins, a share is left to other processes.
void Backfill::refill() {
    const size_t held = m_hand.size() + m_pool.atWork() + m_outcomes.size();
    if (m_hand.size() > m_options.jobs + m_options.ahead || held >= m_options.batch ||
        Clock::now() < m_claimDue)
        return;
    const auto share = static_cast<size_t>(std::max<int64_t>(m_ledger.waiting() / 4, 0));
    const size_t most = std::clamp(share, 2 * m_options.jobs, std::max(m_options.batch, 2 * m_options.jobs));
    std::vector<LedgerObject> claimed =
        m_ledger.claim(std::min(most, m_options.batch - held), std::time(nullptr));
    if (claimed.empty()) m_claimDue = Clock::now() + kClaim;
    for (LedgerObject& object : claimed)
        if (!holds(object.id)) m_hand.push_back(std::move(object));
}

// What others took away while this process was silent may be claimed anew before it has noticed, and while a
// worker is still at it: it goes on then, and what becomes of it is recorded.
bool Backfill::holds(int64_t id) const {
    return m_atWork.contains(id) || std::any_of(m_hand.begin(), m_hand.end(),
                                                [id](const LedgerObject& object) { return object.id == id; });
}

// What is in somebody else's queue is topped up, so that it is never long.
void Backfill::askForRoom() {
    const auto now = Clock::now();
    if (!m_options.room || m_hand.empty() || now < m_roomDue || m_pool.atWork() > 0) return;
    m_roomDue = now + kRoom;
    try {
        m_room = m_options.room();
        m_pauses = 0;
        m_pauseCause.clear();
    } catch (const std::runtime_error& error) {
        m_room = 0;
        pause(error.what());
    }
}

// An object that was handed over is done when its results are there; it has failed when they do not come.
void Backfill::follow() {
    const auto now = Clock::now();
    if (!m_options.isDone || now < m_followDue) return;
    m_followDue = now + kFollow;
    const std::time_t time = std::time(nullptr);
    std::vector<LedgerOutcome> outcomes;
    const std::vector<SubmittedObject> submitted = m_ledger.submitted(kFollowed);
    for (const SubmittedObject& object : submitted) {
        if (m_options.isDone(object.path, object.at))
            outcomes.push_back({.id = object.id, .state = ObjectState::done, .tries = 1});
        else if (time - object.at > m_options.patience)
            outcomes.push_back({.id = object.id,
                                .state = ObjectState::failed,
                                .errorClass = ErrorClass::other,
                                .cause = "its results did not come; see the broker's dead letters",
                                .tries = 1});
    }
    m_isHandedOver = !submitted.empty();
    if (outcomes.empty()) return;
    m_ledger.recordSubmitted(outcomes, time, std::exchange(m_active, 0.0));
    m_settled += static_cast<int64_t>(outcomes.size());
}

void Backfill::giveOut() {
    while (!m_hand.empty() && (!m_options.room || m_room > 0) && m_pool.isFree() &&
           Clock::now() >= m_pace.next()) {
        LedgerObject object = std::move(m_hand.front());
        m_hand.pop_front();
        m_pool.give({.name = object.path,
                     .path = m_options.archive + "/" + object.path,
                     .size = object.size,
                     .ticket = static_cast<uint64_t>(object.id)});
        m_atWork.insert_or_assign(object.id, std::move(object));
        m_pace.went(Clock::now());
        if (m_room > 0) --m_room;
    }
}

void Backfill::settle(const FinishedWork& finished) {
    LedgerObject object = std::move(m_atWork.extract(static_cast<int64_t>(finished.object.ticket)).mapped());
    const WorkResult& result = finished.result;
    LedgerOutcome outcome{.id = object.id,
                          .errorClass = result.errorClass,
                          .cause = withoutPath(result.cause, finished.object.path),
                          .tries = object.tries + 1,
                          .seconds = result.seconds,
                          .written = bytesOf(result.outputs)};
    switch (result.kind) {
        case WorkResult::Kind::done:
            outcome.state = ObjectState::done;
            outcome.errorClass = ErrorClass::none;
            outcome.cause = result.warnings.empty() ? "" : result.warnings.front();
            break;
        case WorkResult::Kind::submitted:
            outcome.state = ObjectState::submitted;
            m_isHandedOver = true;
            break;
        case WorkResult::Kind::passed:
            outcome.state = ObjectState::passed;
            break;
        case WorkResult::Kind::unreachable:
            return hold(std::move(object), result.cause);
        case WorkResult::Kind::changed:
            return tryLater(result, std::move(outcome));
        case WorkResult::Kind::failed:
            const Remedy remedy = remedyFor(result.errorClass);
            if (remedy == Remedy::wait) return hold(std::move(object), result.cause);
            if (remedy == Remedy::later) return tryLater(result, std::move(outcome));
            outcome.state = ObjectState::failed;
            break;
    }
    m_pauses = 0;
    m_pauseCause.clear();
    ++m_settled;
    m_outcomes.push_back(std::move(outcome));
}

void Backfill::tryLater(const WorkResult& result, LedgerOutcome outcome) {
    const bool again = outcome.tries < m_options.tries;
    outcome.state = again ? ObjectState::waiting : ObjectState::failed;
    outcome.at = std::time(nullptr) + pauseAfter(outcome.tries).count();
    if (result.kind == WorkResult::Kind::changed) {
        outcome.errorClass = ErrorClass::file;
        outcome.cause = "it was written on while it was in work";
    }
    m_outcomes.push_back(std::move(outcome));
}

void Backfill::hold(LedgerObject object, const std::string& cause) {
    m_hand.push_front(std::move(object));
    if (Clock::now() >= m_pausedUntil) pause(cause);  // else another one of this round has met the same
}

void Backfill::pause(const std::string& cause) {
    const auto length = pauseAfter(++m_pauses);
    m_pausedUntil = Clock::now() + length;
    m_pauseCause = cause;
    m_say("pausing for " + std::to_string(length.count()) + " s: " + cause);
}

void Backfill::record(bool now) {
    const bool isDue =
        Clock::now() >= m_recordDue || m_outcomes.size() >= std::max<size_t>(m_options.batch / 4, 1);
    if (m_outcomes.empty() || !(now || isDue)) return;
    m_recordDue = Clock::now() + kRecord;
    m_ledger.record(m_outcomes, std::time(nullptr), std::exchange(m_active, 0.0));
    m_outcomes.clear();
}

// What others say: an operator, the clock, workers that are gone.
void Backfill::look() {
    const auto now = Clock::now();
    if (now < m_lookDue) return;
    if (mayGive() && (m_pool.atWork() > 0 || m_isHandedOver))
        m_active += std::chrono::duration<double>(now - m_since).count();
    m_since = now;
    m_lookDue = now + kLook;
    tellGone();
    const std::time_t time = std::time(nullptr);
    m_paused = m_ledger.isPaused();
    m_inHours = m_options.hours.hold(time);
    const bool isNew = note() != m_note;
    if (isNew && m_pauseCause.empty()) m_say(note());
    m_note = note();
    if (now >= m_sayDue) {
        m_sayDue = now + kSay;
        m_say(std::to_string(m_settled) + " objects since the start, " + std::to_string(m_ledger.waiting()) +
              " wait" + (m_listing.isOver() ? "" : ", and the listing goes on"));
    }
    if (now < m_healDue && !isNew) return;
    m_healDue = now + kHeal;
    const int64_t healed = m_ledger.heal(time);
    if (healed > 0) m_say(std::to_string(healed) + " objects of a worker that is gone wait again");
    if (!m_ledger.renew(time, m_note)) {
        m_say("this process was silent for so long that others took over what it had claimed");
        m_hand.clear();
        m_outcomes.clear();
        m_ledger.release();  // what was claimed anew meanwhile, and is in nobody's hand now
    }
}

void Backfill::tellGone() {
    for (const pid_t pid : m_ledger.takeGone())
        m_gone.push_back(pid);
    std::erase_if(m_gone, [this](pid_t pid) { return !m_options.onGone || m_options.onGone(pid); });
}

std::string Backfill::note() const {
    if (m_paused) return "paused by an operator";
    if (!m_inHours) return "out of its hours";
    return m_pauseCause.empty() ? "working" : "pausing: " + m_pauseCause;
}
