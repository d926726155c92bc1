#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hsutils/ServiceNotifier.h"
#include "tools/feeding/WorkerPool.h"
#include "tools/spool/EventFile.h"
#include "tools/spool/IncomingFolder.h"
#include "tools/spool/SpoolFigures.h"
#include "tools/spool/SpoolFolders.h"

/// How a spool is fed.
struct FeederOptions {
    std::string folder;                       ///< the spool, absolute
    std::chrono::duration<double> settle{2};  ///< of a file that was written in place
    size_t jobs = 1;
    size_t ahead = 0;      ///< taken into work beyond those, for whoever becomes free
    unsigned tries = 5;    ///< of an object that may do better later
    bool keepDone = true;  ///< in "done"; else they are deleted
    bool sync = false;     ///< every line of the event file is on the disk before its object leaves "working"
    std::string metrics{};  ///< the file for the figures; empty for none
};

/// The loop that leads objects through a spool. One thread decides; the workers work.
class Feeder {
public:
    using Clock = std::chrono::steady_clock;

    /// Borrows both. `say` gets a line for the log. Throws std::runtime_error for a spool that cannot be
    /// used.
    Feeder(const FeederOptions& options, SpoolWork& work, std::function<void(const std::string&)> say);
    ~Feeder();

    /// Feeds until `stops` says so, which is asked a few times a second; what runs then is finished. Throws
    /// std::runtime_error when the incoming folders cannot be read any more.
    void run(const std::function<bool()>& stops);
    /// The same until nothing is left that could be done: neither at work, nor waiting, nor to be tried
    /// again.
    void runUntilEmpty(const std::function<bool()>& stops);

private:
    struct Parked {
        Clock::time_point due;
        unsigned tries = 0;
        timespec arrived{};  ///< zero where an earlier run has parked it
    };

    void recover();
    void round(bool takesMore);
    bool isEmpty() const;
    void waitForNews() const;
    void giveOut();
    std::optional<SpoolObject> next();
    std::optional<SpoolObject> nextParked();
    std::optional<SpoolObject> nextOf(IncomingFolder& folder, const char* from, bool priority);
    bool isBusy(const std::string& name) const { return m_busy.contains(keyOf(name)); }

    void settle(FinishedWork finished);
    void tell(const SpoolObject& object, const WorkResult& result);
    void done(const SpoolObject& object, const WorkResult& result);
    void failed(const SpoolObject& object, const WorkResult& result);
    void tryLater(SpoolObject object, const std::string& cause);
    void hold(SpoolObject object, const std::string& cause);
    void writeFigures(bool now);

    const FeederOptions& m_options;
    std::function<void(const std::string&)> m_say;
    SpoolFolders m_folders;
    EventFile m_events;
    IncomingFolder m_priority;
    IncomingFolder m_incoming;
    WorkerPool m_pool;
    ServiceNotifier m_notifier;
    SpoolFigures m_figures;

    std::set<std::string> m_busy;            ///< keys in "working" and "retry"
    std::vector<SpoolObject> m_held;         ///< in "working", to be worked on as soon as there is no pause
    std::map<std::string, Parked> m_parked;  ///< by name, in "retry"
    Clock::time_point m_pausedUntil;
    unsigned m_pauses = 0;  ///< without a success in between
    Clock::time_point m_figuresDue;
    bool m_complained = false;
};
