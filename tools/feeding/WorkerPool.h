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

/// Threads that do the work; one thread gives it out and takes it back. A thread that is through finds the
/// next object in a queue, where it was put ahead, and need not wait for who gives it.
class WorkerPool {
public:
    /// `work` is borrowed; `ahead`: how many objects may be given beyond those that the threads are at.
    /// Throws std::runtime_error.
    WorkerPool(SpoolWork& work, size_t threads, size_t ahead = 0);
    /// Waits for what was given.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// To be called while isFree().
    void give(SpoolObject object);
    bool isFree() const { return m_atWork < m_threads.size() + m_ahead; }
    /// Given, and not taken yet.
    size_t atWork() const { return m_atWork; }
    /// What was given and nobody has begun with; it is not at work any more.
    std::vector<SpoolObject> takeBack();
    /// What has been finished since the last call.
    std::vector<FinishedWork> take();
    /// Readable when something was finished and the queue runs low. What is finished before that is there for
    /// whoever looks.
    int descriptor() const { return m_bell; }

private:
    void serve();
    void end();

    SpoolWork& m_work;
    size_t m_ahead;
    int m_bell;  ///< an eventfd
    size_t m_atWork = 0;
    std::mutex m_mutex;
    std::condition_variable m_given;
    std::deque<SpoolObject> m_jobs;
    std::vector<FinishedWork> m_finished;
    bool m_over = false;
    std::vector<std::thread> m_threads;
};
