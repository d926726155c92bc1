#include "tools/backfill/Ledger.h"

#include <ctime>
#include <utility>

namespace {

/// Of one class. A cause that says something else of every object would fill the ledger.
constexpr int64_t kMostCauses = 1000;

ObjectState totalOf(ObjectState state) {
    return state == ObjectState::claimed ? ObjectState::waiting : state;
}

}  // namespace

Ledger::Ledger(Database ledger, const Owner& self)
    : m_database(std::move(ledger)),
      m_self(self),
      m_select(
          m_database,
          "SELECT o.id, CASE f.path WHEN x'' THEN o.name ELSE f.path || '/' || o.name END, o.size, o.tries "
          "FROM object o JOIN folder f ON f.id = o.folder WHERE o.state = 0 AND o.at <= ? "
          "ORDER BY o.at, o.id LIMIT ?"),
      m_take(m_database, "UPDATE object SET state = 1, owner = ? WHERE id = ?"),
      m_settle(m_database,
               "UPDATE object SET state = ?, tries = ?, cause = ?, at = ?, took = ?, owner = NULL "
               "WHERE id = ? AND state = ? AND coalesce(owner, 0) = ? RETURNING size"),
      m_findCause(m_database, "SELECT id FROM cause WHERE class = ? AND text = ?"),
      m_addCause(m_database, "INSERT INTO cause(class, text) VALUES (?, ?)"),
      m_countCauses(m_database, "SELECT count(*) FROM cause WHERE class = ?"),
      m_total(m_database,
              "INSERT INTO total VALUES (?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET objects = objects + "
              "excluded.objects, bytes = bytes + excluded.bytes, written = written + excluded.written"),
      m_progress(m_database,
                 "INSERT INTO progress VALUES (?, ?, ?, ?) ON CONFLICT DO UPDATE SET objects = objects + "
                 "excluded.objects, bytes = bytes + excluded.bytes, active = active + excluded.active"),
      m_stay(m_database, "UPDATE owner SET until = ? WHERE id = ?"),
      m_note(m_database, "UPDATE owner SET note = ? WHERE id = ?") {
    const int64_t now = std::time(nullptr);
    heal(now);
    enter(now);
}

Ledger::~Ledger() {
    try {
        release();
        Statement(m_database, "DELETE FROM owner WHERE id = ?").with(m_owner).run();
    } catch (const LedgerError&) {
        // The next worker finds that this one is gone.
    }
}

void Ledger::enter(int64_t now) {
    Statement(m_database,
              "INSERT INTO owner(host, boot, space, pid, started, until, note) VALUES (?, ?, ?, ?, ?, ?, '')")
        .with(m_self.host, m_self.boot, m_self.space, m_self.pid, m_self.started, now + kLease)
        .run();
    m_owner = m_database.lastRow();
}

std::vector<LedgerObject> Ledger::claim(size_t most, int64_t now) {
    std::vector<LedgerObject> claimed;
    if (most == 0) return claimed;
    Transaction transaction(m_database);
    stay(now);
    m_select.with(now, most);
    while (m_select.step())
        claimed.push_back({.id = m_select.integer(0),
                           .path = m_select.text(1),
                           .size = m_select.integer(2),
                           .tries = static_cast<unsigned>(m_select.integer(3))});
    for (const LedgerObject& object : claimed)
        m_take.with(m_owner, object.id).run();
    transaction.commit();
    return claimed;
}

void Ledger::record(const std::vector<LedgerOutcome>& outcomes, int64_t now, double active) {
    write(outcomes, ObjectState::claimed, now, active);
}

void Ledger::recordSubmitted(const std::vector<LedgerOutcome>& outcomes, int64_t now, double active) {
    write(outcomes, ObjectState::submitted, now, active);
}

std::vector<SubmittedObject> Ledger::submitted(size_t most) {
    Statement select(
        m_database,
        "SELECT o.id, CASE f.path WHEN x'' THEN o.name ELSE f.path || '/' || o.name END, o.at FROM "
        "object o JOIN folder f ON f.id = o.folder WHERE o.state = 5 ORDER BY o.at LIMIT ?");
    std::vector<SubmittedObject> objects;
    select.with(most);
    while (select.step())
        objects.push_back({select.integer(0), select.text(1), select.integer(2)});
    return objects;
}

void Ledger::write(const std::vector<LedgerOutcome>& outcomes, ObjectState from, int64_t now, double active) {
    Transaction transaction(m_database);
    std::map<TotalKey, Change> totals;
    int64_t settled = 0, bytes = 0;
    for (const LedgerOutcome& outcome : outcomes) {
        const int64_t cause = causeOf(outcome);
        const bool waits = outcome.state == ObjectState::waiting;
        m_settle.with(static_cast<int>(outcome.state), outcome.tries, cause, waits ? outcome.at : now,
                      static_cast<int64_t>(outcome.seconds * 1000), outcome.id, static_cast<int>(from),
                      from == ObjectState::claimed ? m_owner : 0);
        if (!m_settle.step()) continue;  // it was given to another worker
        const int64_t size = m_settle.integer(0);
        m_settle.end();
        if (waits) continue;
        Change& before = totals[{totalOf(from), 0}];
        Change& after = totals[{outcome.state, cause}];
        --before.objects, before.bytes -= size;
        ++after.objects, after.bytes += size, after.written += outcome.written;
        const bool isOver = outcome.state == ObjectState::done || outcome.state == ObjectState::failed;
        if (isOver) ++settled, bytes += size;
    }
    addToTotals(totals);
    if (settled > 0 || active > 0) m_progress.with(now / 60, settled, bytes, active).run();
    transaction.commit();
}

void Ledger::addToTotals(const std::map<TotalKey, Change>& changes) {
    for (const auto& [key, change] : changes)
        m_total.with(static_cast<int>(key.first), key.second, change.objects, change.bytes, change.written)
            .run();
}

int64_t Ledger::causeOf(const LedgerOutcome& outcome) {
    if (outcome.cause.empty() && outcome.errorClass == ErrorClass::none) return 0;
    const std::string errorClass = nameOf(outcome.errorClass);
    const auto find = [&](const std::string& text) {
        const int64_t id = m_findCause.with(errorClass, text).step() ? m_findCause.integer(0) : 0;
        m_findCause.end();
        return id;
    };
    if (const int64_t id = find(outcome.cause)) return id;
    m_countCauses.with(errorClass).step();
    const bool isFull = m_countCauses.integer(0) >= kMostCauses;
    m_countCauses.end();
    const std::string text = isFull ? "one of many causes" : outcome.cause;
    if (const int64_t id = isFull ? find(text) : 0) return id;
    m_addCause.with(errorClass, text).run();
    return m_database.lastRow();
}

void Ledger::release() {
    Statement(m_database, "UPDATE object SET state = 0, at = 0, owner = NULL WHERE state = 1 AND owner = ?")
        .with(m_owner)
        .run();
}

// What is claimed under a name that is not in the table nobody would ever give back.
void Ledger::stay(int64_t now) {
    m_stay.with(now + kLease, m_owner).run();
    if (m_database.changes() > 0) return;
    enter(now);
    m_isLost = true;
}

bool Ledger::renew(int64_t now, const std::string& note) {
    Transaction transaction(m_database);
    stay(now);
    m_note.with(note, m_owner).run();
    transaction.commit();
    return !std::exchange(m_isLost, false);
}

int64_t Ledger::heal(int64_t now) {
    struct Entry {
        int64_t id, until;
        Owner owner;
    };
    std::vector<Entry> entries;
    Statement all(m_database, "SELECT id, until, host, boot, space, pid, started FROM owner WHERE id <> ?");
    all.with(m_owner);
    while (all.step())
        entries.push_back({all.integer(0), all.integer(1),
                           Owner{all.text(2), all.text(3), all.text(4), static_cast<pid_t>(all.integer(5)),
                                 all.integer(6)}});
    int64_t healed = 0;
    for (const Entry& entry : entries) {
        if (entry.until >= now && !entry.owner.isGone()) continue;
        Transaction transaction(m_database);
        // Only the entry that was looked at: it may have been renewed since.
        Statement(m_database, "DELETE FROM owner WHERE id = ? AND until = ?")
            .with(entry.id, entry.until)
            .run();
        if (m_database.changes() == 0) continue;
        Statement(m_database,
                  "UPDATE object SET state = 0, at = 0, owner = NULL WHERE state = 1 AND owner = ?")
            .with(entry.id)
            .run();
        healed += m_database.changes();
        transaction.commit();
        if (entry.owner.isGone() && entry.owner.boot == m_self.boot) m_gone.push_back(entry.owner.pid);
    }
    return healed;
}

bool Ledger::isAnyLeft() {
    return waiting() > 0 || count(ObjectState::submitted) > 0;
}

int64_t Ledger::waiting() {
    return count(ObjectState::waiting);
}

int64_t Ledger::count(ObjectState state) {
    Statement statement(m_database, "SELECT coalesce(sum(objects), 0) FROM total WHERE state = ?");
    statement.with(static_cast<int>(state)).step();
    const int64_t objects = statement.integer(0);
    statement.end();
    return objects;
}

bool Ledger::isPaused() {
    return !settingOf(m_database, "paused").empty();
}
