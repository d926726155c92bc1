#include "tools/feeding/WorkerPool.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <exception>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace {

WorkResult doneBy(SpoolWork& work, const SpoolObject& object) {
    try {
        return work.run(object);
    } catch (const std::exception& error) {
        return {.kind = WorkResult::Kind::failed, .errorClass = ErrorClass::output, .cause = error.what()};
    }
}

}  // namespace

WorkerPool::WorkerPool(SpoolWork& work, size_t threads, size_t ahead)
    : m_work(work), m_ahead(ahead), m_bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_bell < 0) throw std::runtime_error("no eventfd");
    try {
        while (m_threads.size() < threads)
            m_threads.emplace_back([this] { serve(); });
    } catch (const std::exception& error) {
        const std::string count = std::to_string(m_threads.size());
        end();
        throw std::runtime_error("no more than " + count + " threads can be started: " + error.what());
    }
}

WorkerPool::~WorkerPool() {
    end();
}

void WorkerPool::end() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_over = true;
    }
    m_given.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
    close(m_bell);
}

void WorkerPool::give(SpoolObject object) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back(std::move(object));
    }
    ++m_atWork;
    m_given.notify_one();
}

std::vector<FinishedWork> WorkerPool::take() {
    eventfd_t ignored = 0;
    (void)eventfd_read(m_bell, &ignored);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_atWork -= m_finished.size();
    return std::exchange(m_finished, {});
}

std::vector<SpoolObject> WorkerPool::takeBack() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<SpoolObject> objects(std::make_move_iterator(m_jobs.begin()),
                                     std::make_move_iterator(m_jobs.end()));
    m_jobs.clear();
    m_atWork -= objects.size();
    return objects;
}

void WorkerPool::serve() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_given.wait(lock, [this] { return m_over || !m_jobs.empty(); });
        if (m_jobs.empty()) return;
        SpoolObject object = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        WorkResult result = doneBy(m_work, object);
        lock.lock();
        m_finished.push_back({std::move(object), std::move(result)});
        if (m_jobs.size() <= m_ahead / 2) (void)eventfd_write(m_bell, 1);
    }
}
