#include "tools/backfill/Sqlite.h"

#include <cstring>

namespace {

constexpr int kWaitMs = 60000;  ///< for another process that writes

int flagsOf(Database::Mode mode) {
    switch (mode) {
        case Database::Mode::read:
            return SQLITE_OPEN_READONLY;
        case Database::Mode::write:
            return SQLITE_OPEN_READWRITE;
        default:
            return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    }
}

}  // namespace

Database::Database(const std::string& path, Mode mode) : m_path(path) {
    const int code = sqlite3_open_v2(path.c_str(), &m_handle, flagsOf(mode) | SQLITE_OPEN_NOMUTEX, nullptr);
    try {
        if (code != SQLITE_OK) fail(code);
        sqlite3_extended_result_codes(m_handle, 1);
        sqlite3_busy_timeout(m_handle, kWaitMs);
    } catch (...) {
        sqlite3_close(m_handle);
        throw;
    }
}

Database::~Database() {
    sqlite3_close(m_handle);
}

void Database::run(const char* sql) {
    const int code = sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) fail(code);
}

void Database::fail(int code) const {
    const std::string said = m_handle ? sqlite3_errmsg(m_handle) : sqlite3_errstr(code);
    const int number = m_handle ? sqlite3_system_errno(m_handle) : 0;
    const std::string system = number != 0 ? std::string(" (") + std::strerror(number) + ")" : "";
    switch (code & 0xFF) {
        case SQLITE_FULL:
            throw LedgerError("the ledger " + m_path +
                              " cannot be written: its disk is full; what it has recorded is kept");
        case SQLITE_NOTADB:
            throw LedgerError(m_path + " is no ledger: " + said);
        case SQLITE_CORRUPT:
            throw LedgerError("the ledger " + m_path + " is damaged: " + said +
                              "; put it aside and begin a new one, which converts everything once more");
        case SQLITE_BUSY:
            throw LedgerError("the ledger " + m_path + " has been held by another process for " +
                              std::to_string(kWaitMs / 1000) + " s");
        default:
            throw LedgerError("the ledger " + m_path + ": " + said + system);
    }
}

Statement::Statement(Database& database, const char* sql) : m_database(database) {
    check(sqlite3_prepare_v3(database.handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &m_handle, nullptr));
}

bool Statement::step() {
    const int code = sqlite3_step(m_handle);
    if (code == SQLITE_ROW) return true;
    sqlite3_reset(m_handle);
    if (code != SQLITE_DONE) m_database.fail(code);
    return false;
}

std::string Statement::text(int column) const {
    const void* bytes = sqlite3_column_blob(m_handle, column);
    const int length = sqlite3_column_bytes(m_handle, column);
    return bytes ? std::string(static_cast<const char*>(bytes), static_cast<size_t>(length)) : std::string();
}

void Statement::bind(int place, const std::string& text) {
    check(sqlite3_bind_text64(m_handle, place, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Statement::bind(int place, const Raw& raw) {
    // An empty one is no NULL.
    const char* bytes = raw.bytes.empty() ? "" : raw.bytes.data();
    check(sqlite3_bind_blob64(m_handle, place, bytes, raw.bytes.size(), SQLITE_TRANSIENT));
}

Transaction::~Transaction() {
    if (m_open) sqlite3_exec(m_database.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    m_database.run("COMMIT");
    m_open = false;
}
