#include "tools/backfill/Listing.h"

#include <ctime>
#include <exception>
#include <stdexcept>
#include <utility>

namespace {

/// Transactions of fewer rows cost more than what is in them.
constexpr size_t kGathered = 2000;

}  // namespace

/// Gathers the files of small folders, so that one transaction has many of them.
class Listing::Visitor : public ArchiveVisitor {
public:
    Visitor(LedgerListing& ledger, const Listing& listing) : m_ledger(ledger), m_listing(listing) {}

    bool entersBelow(const std::string& folder) override {
        return m_listing.m_options.shard.mayOwnBelow(folder);
    }
    bool wantsFiles(const std::string& folder) override {
        if (!m_listing.m_options.shard.owns(folder)) return false;
        return m_listing.m_options.list || !m_ledger.isListed(folder);
    }
    void files(const std::string& folder, std::vector<ListedFile> found, bool isWhole) override {
        m_rows += found.size();
        m_hasFound = m_hasFound || !found.empty();
        m_gathered.push_back({folder, std::move(found), isWhole});
        if (m_rows >= kGathered || m_gathered.size() >= kGathered) write();
    }
    void unreadable(const std::string& folder, const std::string& cause) override {
        m_ledger.addUnreadable(folder, cause, std::time(nullptr));
        m_listing.m_say(folder + ": " + cause);
    }
    bool stops() override { return m_listing.m_ends || m_listing.m_stops(); }
    bool hasFound() const { return m_hasFound; }

    void write() {
        if (!m_gathered.empty()) m_ledger.add(m_gathered);
        m_gathered.clear();
        m_rows = 0;
    }

private:
    LedgerListing& m_ledger;
    const Listing& m_listing;
    std::vector<ListedFolder> m_gathered;
    size_t m_rows = 0;
    bool m_hasFound = false;
};

Listing::Listing(ListingOptions options, Say say, std::function<bool()> stops)
    : m_options(std::move(options)), m_say(std::move(say)), m_stops(std::move(stops)), m_thread([this] {
          try {
              run();
          } catch (const std::exception& error) {
              m_failure = error.what();
          }
          m_over = true;
      }) {}

Listing::~Listing() {
    m_ends = true;
    m_thread.join();
}

void Listing::run() {
    LedgerListing ledger(openLedger(m_options.ledger, Database::Mode::write));
    if (m_options.again) ledger.setWhole(false);
    Visitor visitor(ledger, *this);
    const bool isBegun = ledger.knowsObjects();
    if (m_options.list) {
        std::string refused;
        const size_t refusals = readArchiveList(m_options.archive, m_options.list, visitor, refused);
        if (refusals > 0)
            m_say(std::to_string(refusals) + " names lead out of " + m_options.archive + ", the first is " +
                  refused);
    } else if (!ledger.isWhole()) {
        walkArchive(m_options.archive, m_options.results, visitor);
        // Folders that went away are passed over; all of them at once are no end of the listing.
        if ((isBegun || visitor.hasFound()) && !archiveIsThere(m_options.archive))
            throw std::runtime_error(nothingIn(m_options.archive));
    }
    visitor.write();
    if (visitor.stops()) return;
    ledger.setWhole(true);
    m_say("listed: " + std::to_string(ledger.added()) + " objects are new");
}
