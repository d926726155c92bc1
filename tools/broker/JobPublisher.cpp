#include "tools/broker/JobPublisher.h"

namespace {

constexpr size_t kMostOpen = 500;
constexpr std::chrono::seconds kConfirmPatience{60};

}  // namespace

JobPublisher::JobPublisher(const BrokerOptions& options, const std::string& name)
    : m_queues(options.queue), m_connection(options, name) {
    // An account that may only publish needs no right to make queues once they are there.
    if (!m_connection.depth(m_queues.jobs)) declareQueues(m_connection, m_queues);
}

void JobPublisher::publish(const Job& job) {
    while (m_open.size() >= kMostOpen)
        take(kConfirmPatience);
    m_open.insert(m_connection.publish("", m_queues.jobs, {.body = jobText(job), .id = job.id}, true));
    keepAlive();
}

void JobPublisher::flush() {
    while (!m_open.empty())
        take(kConfirmPatience);
}

uint64_t JobPublisher::depth() {
    const std::optional<uint64_t> depth = m_connection.depth(m_queues.jobs);
    if (!depth) throw BrokerError("the queue " + m_queues.jobs + " is gone");
    return *depth;
}

void JobPublisher::keepAlive() {
    while (take(std::chrono::milliseconds(0))) {
    }
}

bool JobPublisher::take(std::chrono::milliseconds patience) {
    const std::optional<BrokerEvent> event = m_connection.next(patience);
    if (!event) {
        if (patience.count() > 0) throw BrokerError("the broker confirms nothing");
        return false;
    }
    if (event->kind == BrokerEvent::Kind::refused)
        throw BrokerError("the broker refuses jobs: the queue is full");
    if (event->kind == BrokerEvent::Kind::returned)
        throw BrokerError("the queue " + m_queues.jobs + " is gone");
    if (event->kind == BrokerEvent::Kind::confirmed && event->multiple)
        m_open.erase(m_open.begin(), m_open.upper_bound(event->tag));
    else if (event->kind == BrokerEvent::Kind::confirmed)
        m_open.erase(event->tag);
    return true;
}
