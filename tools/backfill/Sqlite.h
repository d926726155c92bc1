#pragma once

#include <sqlite3.h>

#include <concepts>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

/// A ledger that cannot be used; the text names the file and the cause.
class LedgerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Bytes that need not be text: a name in a file system.
struct Raw {
    std::string_view bytes;
};

/// A connection to a database file in SQLite. For one thread. Every call throws LedgerError.
class Database {
public:
    enum class Mode : uint8_t { read, write, create };

    Database(const std::string& path, Mode mode);
    ~Database();
    /// Before there are statements of it.
    Database(Database&& other) noexcept
        : m_path(std::move(other.m_path)), m_handle(std::exchange(other.m_handle, nullptr)) {}
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Runs statements without values and without an answer.
    void run(const char* sql);
    /// Rows that the last statement has changed.
    int64_t changes() const { return sqlite3_changes64(m_handle); }
    int64_t lastRow() const { return sqlite3_last_insert_rowid(m_handle); }

    const std::string& path() const { return m_path; }
    sqlite3* handle() const { return m_handle; }
    /// Says in words what an SQLite code that is no success means for the ledger.
    [[noreturn]] void fail(int code) const;

private:
    std::string m_path;
    sqlite3* m_handle = nullptr;
};

/// A statement that was compiled once and runs many times.
class Statement {
public:
    Statement(Database& database, const char* sql);
    ~Statement() { sqlite3_finalize(m_handle); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Gives all values, in order, for a run from the beginning. Texts are copied.
    template <typename... Values>
    Statement& with(const Values&... values) {
        sqlite3_reset(m_handle);
        int place = 0;
        (bind(++place, values), ...);
        return *this;
    }
    /// To the next row; false when there is none.
    bool step();
    /// All of it, whatever it answers.
    void run() {
        while (step()) {
        }
    }
    /// Ends it before its last row, so that it keeps nobody from writing.
    void end() { sqlite3_reset(m_handle); }

    int64_t integer(int column) const { return sqlite3_column_int64(m_handle, column); }
    double real(int column) const { return sqlite3_column_double(m_handle, column); }
    std::string text(int column) const;

private:
    void bind(int place, std::integral auto value) {
        check(sqlite3_bind_int64(m_handle, place, static_cast<int64_t>(value)));
    }
    void bind(int place, double value) { check(sqlite3_bind_double(m_handle, place, value)); }
    void bind(int place, const std::string& text);
    void bind(int place, const Raw& raw);
    void check(int code) const {
        if (code != SQLITE_OK) m_database.fail(code);
    }

    Database& m_database;
    sqlite3_stmt* m_handle = nullptr;
};

/// Changes that are made all or not at all. Nobody else writes while it lives.
class Transaction {
public:
    explicit Transaction(Database& database) : m_database(database) { database.run("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& m_database;
    bool m_open = true;
};
