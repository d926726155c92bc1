#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/command/ObjectSource.h"
#include "tools/command/Session.h"

/// One object on its way.
struct ConversionJob {
    size_t place = 0;  ///< for whoever gave it
    FoundObject object;
    Request request;
};

/// Works conversions off over several channels at once. Holds as many jobs as run at the same time, however
/// many there are.
class Conversion {
public:
    /// Gives the next job; false when there is none left. Called by one thread at a time.
    using Source = std::function<bool(ConversionJob&)>;
    /// Does a job; called by several threads at once.
    using Work = std::function<void(const ConversionJob&)>;

    Conversion(Source source, Work work) : m_source(std::move(source)), m_work(std::move(work)) {}

    /// `jobs` at a time, until the source has none left. What one of them throws ends it after those that
    /// run.
    void run(size_t jobs) { run(jobs, jobs); }
    /// As many at a time as keep the machine's processors busy, by what it has to do: never less than `least`
    /// nor more than `most`. Each servant more that is kept at work has its own memory to bring into the
    /// processors' caches, which slows all down once there is no processor left for it.
    void run(size_t least, size_t most);

private:
    void adapt(size_t least, size_t most);
    void employ(size_t workers);
    void workOff(size_t worker);
    bool take(size_t worker, ConversionJob& job);

    Source m_source;
    Work m_work;
    std::vector<std::thread> m_workers;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    size_t m_wanted = 0;  ///< how many of the workers are to work; the others pause
    bool m_exhausted = false;
    std::exception_ptr m_problem;
};
