#include "tools/vintak-feed/BrokerHandover.h"

#include <exception>
#include <utility>

#include "tools/broker/JobPublisher.h"

BrokerHandover::BrokerHandover(BrokerOptions broker) : m_broker(std::move(broker)) {
    (void)readPassword(m_broker);
}

BrokerHandover::~BrokerHandover() = default;

WorkResult BrokerHandover::run(const SpoolObject& object) {
    Letter letter;
    try {
        letter.job = makeJob(object.path, object.name);
    } catch (const JobError& error) {
        return {.errorClass = ErrorClass::request, .cause = error.what()};
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_letters.push_back(&letter);
    while (!letter.isSent) {
        if (m_isBusy) {
            m_changed.wait(lock);
            continue;
        }
        // This thread speaks for all that have come meanwhile.
        const std::vector<Letter*> letters = std::exchange(m_letters, {});
        m_isBusy = true;
        lock.unlock();
        send(letters);
        lock.lock();
        m_isBusy = false;
        for (Letter* sent : letters)
            sent->isSent = true;
        m_changed.notify_all();
    }
    if (!letter.failure.empty()) return {.kind = WorkResult::Kind::unreachable, .cause = letter.failure};
    return {.kind = WorkResult::Kind::submitted, .job = letter.job.id};
}

JobPublisher& BrokerHandover::publisher() {
    if (!m_publisher) m_publisher = std::make_unique<JobPublisher>(m_broker, "vintak backfill");
    return *m_publisher;
}

// What the broker has not confirmed is sent once more by a later try; a job that is there twice does no harm.
void BrokerHandover::send(const std::vector<Letter*>& letters) {
    std::string failure;
    try {
        for (const Letter* letter : letters)
            publisher().publish(letter->job);
        publisher().flush();
    } catch (const std::exception& error) {
        failure = std::string("no broker: ") + error.what();
        m_publisher.reset();
    }
    for (Letter* letter : letters)
        letter->failure = failure;
}

uint64_t BrokerHandover::depth() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_isBusy; });
    try {
        return publisher().depth();
    } catch (const std::exception& error) {
        m_publisher.reset();
        throw std::runtime_error(std::string("no broker: ") + error.what());
    }
}
