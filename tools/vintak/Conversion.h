#pragma once

#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include "tools/vintak/ProgressBar.h"
#include "tools/vintak/Session.h"

/// Works conversions off over several channels at once, and says on standard error what failed or is missing.
class Conversion {
public:
    /// Borrows all; `files` are the names to be told, one for each request.
    Conversion(Session& session, const std::vector<std::string>& files, const std::vector<Request>& requests)
        : m_session(session),
          m_files(files),
          m_requests(requests),
          m_progress(requests.size()),
          m_outcomes(requests.size()) {}

    /// `jobs` requests at a time. Throws NoDaemon.
    void run(size_t jobs);

    size_t failures() const { return m_progress.failures(); }
    size_t filesWithWarnings() const { return m_progress.filesWithWarnings(); }
    /// What became of each request, after run().
    const std::vector<Outcome>& outcomes() const { return m_outcomes; }

private:
    void work();
    void tell(size_t index);

    Session& m_session;
    const std::vector<std::string>& m_files;
    const std::vector<Request>& m_requests;
    ProgressBar m_progress;
    std::vector<Outcome> m_outcomes;
    std::atomic<size_t> m_next{0};
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;
    std::exception_ptr m_problem;
};
