#pragma once

#include <string>
#include <vector>

#include "tools/backfill/LedgerFile.h"

/// A file as it was found.
struct ListedFile {
    std::string name;
    int64_t size = 0;      ///< bytes
    int64_t modified = 0;  ///< seconds since 1970
};

/// Files of a folder.
struct ListedFolder {
    std::string path;
    std::vector<ListedFile> files;
    bool isWhole = false;  ///< there are no more
};

/// The hand that writes objects into a ledger. Everything may be told again: an object is in it once, and
/// waits again when its file has changed, or is back that was not there. For one thread, with a connection of
/// its own. Every call throws LedgerError.
class LedgerListing {
public:
    explicit LedgerListing(Database ledger);

    /// Whether all files of a folder have been written down before.
    bool isListed(const std::string& folder);
    /// Writes down files, in one transaction.
    void add(const std::vector<ListedFolder>& folders);
    /// Writes down that a folder cannot be read.
    void addUnreadable(const std::string& folder, const std::string& cause, int64_t now);
    /// The listing has come to its end, or begins once more.
    void setWhole(bool whole);
    bool isWhole() { return !settingOf(m_database, "listed").empty(); }
    bool knowsObjects();

    /// Objects that were new, or new again.
    int64_t added() const { return m_added; }

private:
    struct Gain {
        int64_t objects = 0, bytes = 0;
    };

    int64_t folderOf(const std::string& folder, bool& isNew);
    void addFolder(const ListedFolder& folder);
    void insert(int64_t folder, const ListedFile& file);
    bool renew(int64_t folder, const ListedFile& file);
    void forgetUnreadable(int64_t folder);
    void addToTotal(int state, int64_t cause, Gain gain);

    Database m_database;
    int64_t m_added = 0;
    Gain m_gain;
    Statement m_findFolder, m_addFolder, m_markFolder, m_find, m_insert, m_renew, m_total;
};
