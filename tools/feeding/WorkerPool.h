#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/feeding/SpoolWork.h"

/// An object and what became of it.
struct FinishedWork {
    SpoolObject object;
    WorkResult result;
};

/// Threads that do the work; one thread gives it out and takes it back.
class WorkerPool {
public:
    /// `work` is borrowed. Throws std::runtime_error.
    WorkerPool(SpoolWork& work, size_t threads);
    /// Waits for what runs.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// To be called while isFree().
    void give(SpoolObject object);
    bool isFree() const { return m_atWork < m_threads.size(); }
    size_t atWork() const { return m_atWork; }
    /// What has been finished since the last call.
    std::vector<FinishedWork> take();
    /// Readable when something was finished.
    int descriptor() const { return m_bell; }

private:
    void serve();

    SpoolWork& m_work;
    int m_bell;  ///< an eventfd
    size_t m_atWork = 0;
    std::mutex m_mutex;
    std::condition_variable m_given;
    std::deque<SpoolObject> m_jobs;
    std::vector<FinishedWork> m_finished;
    bool m_over = false;
    std::vector<std::thread> m_threads;
};
