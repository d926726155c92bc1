#pragma once

#include <exception>
#include <functional>
#include <mutex>

#include "tools/vintak/ObjectSource.h"
#include "tools/vintak/Session.h"

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
    void run(size_t jobs);

private:
    void workOff();
    bool take(ConversionJob& job);

    Source m_source;
    Work m_work;
    bool m_exhausted = false;
    std::mutex m_mutex;
    std::exception_ptr m_problem;
};
