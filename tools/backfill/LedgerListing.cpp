#include "tools/backfill/LedgerListing.h"

#include <utility>

#include "hsutils/errorclass.h"
#include "tools/backfill/Shard.h"

namespace {

/// Told apart within a folder by 32 bits first, which an index has room for, and then by its name.
uint32_t shortHash(const std::string& name) {
    return static_cast<uint32_t>(stableHash(name));
}

}  // namespace

LedgerListing::LedgerListing(Database ledger)
    : m_database(std::move(ledger)),
      m_findFolder(m_database, "SELECT id, listed FROM folder WHERE path = ?"),
      m_addFolder(m_database, "INSERT INTO folder(path) VALUES (?)"),
      m_markFolder(m_database, "UPDATE folder SET listed = 1 WHERE id = ?"),
      m_find(
          m_database,
          "SELECT id, state, cause, size, modified, state = 4 AND EXISTS (SELECT 1 FROM cause WHERE cause.id "
          "= object.cause AND class = 'file') FROM object WHERE folder = ? AND hash = ? AND name = ?"),
      m_insert(m_database,
               "INSERT INTO object(folder, hash, name, size, modified, state, tries, cause, at, took) "
               "VALUES (?, ?, ?, ?, ?, 0, 0, 0, 0, 0)"),
      m_renew(
          m_database,
          "UPDATE object SET state = 0, tries = 0, cause = 0, at = 0, size = ?, modified = ? WHERE id = ?"),
      m_total(m_database,
              "INSERT INTO total VALUES (?, ?, ?, ?, 0) ON CONFLICT DO UPDATE SET objects = objects + "
              "excluded.objects, bytes = bytes + excluded.bytes") {}

int64_t LedgerListing::folderOf(const std::string& folder, bool& isNew) {
    isNew = !m_findFolder.with(Raw{folder}).step();
    if (isNew) {
        m_addFolder.with(Raw{folder}).run();
        return m_database.lastRow();
    }
    const int64_t id = m_findFolder.integer(0);
    m_findFolder.end();
    return id;
}

bool LedgerListing::isListed(const std::string& folder) {
    const bool listed = m_findFolder.with(Raw{folder}).step() && m_findFolder.integer(1) != 0;
    m_findFolder.end();
    return listed;
}

void LedgerListing::add(const std::vector<ListedFolder>& folders) {
    Transaction transaction(m_database);
    m_gain = {};
    for (const ListedFolder& folder : folders)
        addFolder(folder);
    if (m_gain.objects > 0) addToTotal(0, 0, m_gain);
    transaction.commit();
    m_added += m_gain.objects;
}

void LedgerListing::addFolder(const ListedFolder& folder) {
    bool isNew = false;
    const int64_t id = folderOf(folder.path, isNew);
    // A list may have a name twice, a folder has not.
    for (const ListedFile& file : folder.files)
        if ((isNew && folder.isWhole) || !renew(id, file)) insert(id, file);
    if (!folder.isWhole) return;
    if (!isNew) forgetUnreadable(id);
    m_markFolder.with(id).run();
}

bool LedgerListing::knowsObjects() {
    return Statement(m_database, "SELECT 1 FROM object LIMIT 1").step();
}

void LedgerListing::forgetUnreadable(int64_t folder) {
    const bool isThere = m_find.with(folder, shortHash(""), Raw{""}).step();
    const int64_t id = isThere ? m_find.integer(0) : 0, state = isThere ? m_find.integer(1) : 0,
                  cause = isThere ? m_find.integer(2) : 0;
    m_find.end();
    if (!isThere) return;
    Statement(m_database, "DELETE FROM object WHERE id = ?").with(id).run();
    addToTotal(static_cast<int>(state), cause, {-1, 0});
}

void LedgerListing::insert(int64_t folder, const ListedFile& file) {
    m_insert.with(folder, shortHash(file.name), Raw{file.name}, file.size, file.modified).run();
    ++m_gain.objects, m_gain.bytes += file.size;
}

/// False where the object is not in the ledger.
bool LedgerListing::renew(int64_t folder, const ListedFile& file) {
    if (!m_find.with(folder, shortHash(file.name), Raw{file.name}).step()) return false;
    const int64_t id = m_find.integer(0), state = m_find.integer(1), cause = m_find.integer(2),
                  size = m_find.integer(3);
    // One that was passed over since it was not there is there now.
    const bool isSame = size == file.size && m_find.integer(4) == file.modified && m_find.integer(5) == 0;
    m_find.end();
    const bool isOver = state == static_cast<int>(ObjectState::done) ||
                        state == static_cast<int>(ObjectState::failed) ||
                        state == static_cast<int>(ObjectState::passed);
    if (isSame || !isOver) return true;
    m_renew.with(file.size, file.modified, id).run();
    addToTotal(static_cast<int>(state), cause, {-1, -size});
    ++m_gain.objects, m_gain.bytes += file.size;
    return true;
}

void LedgerListing::addToTotal(int state, int64_t cause, Gain gain) {
    m_total.with(state, cause, gain.objects, gain.bytes).run();
}

// It stands in the ledger as an object without a name that has failed.
void LedgerListing::addUnreadable(const std::string& folder, const std::string& cause, int64_t now) {
    Transaction transaction(m_database);
    bool isNew = false;
    const int64_t id = folderOf(folder, isNew);
    const bool isKnown = !isNew && m_find.with(id, shortHash(""), Raw{""}).step();
    m_find.end();
    if (isKnown) return;
    Statement(m_database, "INSERT OR IGNORE INTO cause(class, text) VALUES (?, ?)")
        .with(std::string(nameOf(ErrorClass::file)), cause)
        .run();
    Statement(m_database,
              "INSERT INTO object(folder, hash, name, size, modified, state, tries, cause, at, took) "
              "SELECT ?, ?, x'', 0, 0, 3, 1, id, ?, 0 FROM cause WHERE class = ? AND text = ?")
        .with(id, shortHash(""), now, std::string(nameOf(ErrorClass::file)), cause)
        .run();
    Statement find(m_database, "SELECT cause FROM object WHERE id = ?");
    find.with(m_database.lastRow()).step();
    addToTotal(static_cast<int>(ObjectState::failed), find.integer(0), {1, 0});
    find.end();
    transaction.commit();
}

void LedgerListing::setWhole(bool whole) {
    setSetting(m_database, "listed", whole ? "1" : "");
    if (!whole) m_database.run("UPDATE folder SET listed = 0");
}
