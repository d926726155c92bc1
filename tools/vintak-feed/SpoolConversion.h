#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tools/command/Session.h"
#include "tools/feeding/ResultsFolder.h"
#include "tools/feeding/SpoolWork.h"

/// Where the results of objects go, and how they are made.
struct SpoolConversionOptions {
    std::string segment;
    std::string results;  ///< a folder, absolute
    int writeMask = 3;
    bool needOptimize = true;
    bool sync = false;  ///< results are on the disk before they are seen
};

/// Has objects of a spool, of an archive or of a broker's jobs, converted by the daemon of this host. The
/// results of an object are a folder "KEY" below the results' folder, with the prefix "object" in it. They
/// are written elsewhere and put there by one rename: whoever looks finds all of one version, or all of the
/// one before, or nothing.
class SpoolConversion : public SpoolWork {
public:
    /// `stops`: whether to give up waiting for a free servant. Throws std::runtime_error for a folder that
    /// cannot be used.
    SpoolConversion(SpoolConversionOptions options, std::function<bool()> stops);

    WorkResult run(const SpoolObject& object) override;

    /// Whether the results of an object are in the folder `results`, made at `since` (seconds since 1970) or
    /// later; clocks of two hosts may differ by a minute.
    static bool isDone(const std::string& results, const std::string& key, int64_t since);

    /// Frees the servants that a program held which was killed: they would wait for it until their time is
    /// out. False when the daemon's table is locked, as it is for two seconds when that program had locked
    /// it.
    bool freeServantsOf(int32_t pid) const;

    /// How many servants the daemon has; 0 while there is none that would do the work.
    size_t servants();

private:
    std::shared_ptr<Session> session();
    void forget(const std::shared_ptr<Session>& session);
    WorkResult convert(const SpoolObject& object, Session& session);

    SpoolConversionOptions m_options;
    std::function<bool()> m_stops;
    ResultsFolder m_results;
    std::mutex m_mutex;
    std::shared_ptr<Session> m_session;
};
