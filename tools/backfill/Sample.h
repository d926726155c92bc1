#pragma once

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tools/backfill/ArchiveWalk.h"
#include "tools/backfill/Shard.h"

/// Counts the files of an archive and keeps a few of each size by chance: of files between 2^n and 2^(n+1)
/// bytes, which take about the same time, a class of its own. Its memory does not grow with the archive.
class Sample : public ArchiveVisitor {
public:
    struct Class {
        int64_t objects = 0, bytes = 0;
        std::vector<ListedFile> kept{};  ///< with paths below the archive
    };

    /// Keeps `most` of each class. The same archive gives the same sample.
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp)
    Sample(const Shard& shard, size_t most, std::function<bool()> stops)
        : m_shard(shard), m_most(most), m_stops(std::move(stops)) {}

    bool entersBelow(const std::string& folder) override { return m_shard.mayOwnBelow(folder); }
    bool wantsFiles(const std::string& folder) override { return m_shard.owns(folder); }
    void files(const std::string& folder, std::vector<ListedFile> found, bool isWhole) override;
    void unreadable(const std::string& /*folder*/, const std::string& /*cause*/) override { ++m_unreadable; }
    bool stops() override { return m_stops(); }

    const std::map<int, Class>& classes() const { return m_classes; }
    int64_t unreadable() const { return m_unreadable; }

private:
    Shard m_shard;
    size_t m_most;
    std::function<bool()> m_stops;
    std::map<int, Class> m_classes;
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same archive gives the same sample
    std::minstd_rand m_chance;
    int64_t m_unreadable = 0;
};
