#include "tools/broker/JobWorker.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "hsutils/jsontext.h"
#include "hsutils/replacefile.h"
#include "hsutils/utctime.h"
#include "tools/feeding/EventText.h"
#include "tools/feeding/RetryPolicy.h"

namespace {

constexpr std::chrono::seconds kFigures{2};
constexpr std::chrono::seconds kLastWords{10};  ///< for the broker's confirmations at the end
constexpr int kRoundMs = 200;
constexpr size_t kLongestCause = 2000;
constexpr const char* kTries = "vintak-tries";

double now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Tries that a message has behind it, whoever wrote the header.
unsigned triesOf(const BrokerMessage& message) {
    constexpr int64_t kMost = 1000000;
    const auto found = message.headers.find(kTries);
    const int64_t* count = found == message.headers.end() ? nullptr : std::get_if<int64_t>(&found->second);
    return !count || *count < 0 ? 0 : static_cast<unsigned>(std::min(*count, kMost));
}

// What the broker wrote on it is the broker's. The rest goes back with the message, and must leave room in
// its frame for what is said of it.
void keepHeaders(BrokerHeaders& headers) {
    constexpr size_t kMost = 32768;
    size_t bytes = 0;
    std::erase_if(headers, [](const auto& header) { return header.first.starts_with("x-"); });
    for (const auto& [name, value] : headers) {
        const auto* text = std::get_if<std::string>(&value);
        bytes += name.size() + (text ? text->size() : sizeof(int64_t));
    }
    if (bytes <= kMost) return;
    std::erase_if(headers, [](const auto& header) {
        return header.first != kTries || !std::holds_alternative<int64_t>(header.second);
    });
}

}  // namespace

JobWorker::JobWorker(const JobWorkerOptions& options, JobInputs& work, std::function<size_t()> servants,
                     std::function<void(const std::string&)> say)
    : m_options(options),
      m_work(work),
      m_servants(std::move(servants)),
      m_say(std::move(say)),
      m_queues(options.broker.queue) {
    (void)readPassword(options.broker);  // a mistake in the options is told at once
    m_figures.startTime = now();
}

JobWorker::~JobWorker() {
    if (!m_options.metrics.empty()) unlink(m_options.metrics.c_str());
}

void JobWorker::run(const std::function<bool()>& stops, bool untilEmpty) {
    m_notifier.ready("working");
    while (!stops() && !(untilEmpty && isIdle()))
        round(true);
    m_notifier.stopping();
    withdraw();
    guarded([this] { stopConsuming(); });
    const Clock::time_point end = Clock::now() + kLastWords;
    while (!m_atWork.empty() || (m_connection && !m_settlements.isEmpty() && Clock::now() < end))
        round(false);
    writeFigures(true);
}

void JobWorker::round(bool takesMore) {
    if (takesMore) {
        connect();
        takeWork();
    }
    wait();
    guarded([this] { hear(); });
    if (m_pool)
        for (const FinishedWork& finished : m_pool->take())
            settle(finished);
    giveOut();
    writeFigures(false);
    m_notifier.alive();
}

void JobWorker::wait() {
    pollfd files[] = {{m_pool ? m_pool->descriptor() : -1, POLLIN, 0},
                      {m_connection ? m_connection->descriptor() : -1, POLLIN, 0}};
    poll(files, 2, kRoundMs);
}

void JobWorker::guarded(const std::function<void()>& what) {
    if (!m_connection) return;
    try {
        what();
    } catch (const std::runtime_error& error) {
        lost(error.what());
    }
}

// The broker gives what we had in our hands to somebody; whatever still runs here is of no use any more.
void JobWorker::lost(const std::string& cause) {
    m_connection.reset();
    m_isConsuming = false;
    m_settlements.clear();
    m_finished.clear();
    withdraw();
    m_waiting.clear();
    ++m_figures.losses;
    const auto pause = pauseAfter(++m_losses);
    m_connectDue = Clock::now() + pause;
    m_say("no broker: " + cause + "; again in " + std::to_string(pause.count()) + " s");
}

void JobWorker::connect() {
    if (m_connection || Clock::now() < m_connectDue) return;
    try {
        m_connection = std::make_unique<BrokerConnection>(m_options.broker, "vintak work " + m_options.name);
        ++m_connections;
        declareQueues(*m_connection, m_queues);
        m_say("connected to the broker " + m_options.broker.host);
    } catch (const std::runtime_error& error) {
        lost(error.what());
    }
}

void JobWorker::takeWork() {
    if (!m_connection || m_isConsuming || Clock::now() < m_pausedUntil) return;
    const size_t servants = m_servants();
    if (servants == 0) return pause("no daemon");
    const size_t jobs = m_options.jobs > 0 ? m_options.jobs : servants;
    if (jobs != m_poolSize) {
        if (!m_atWork.empty())
            return;  // a daemon of another size; its jobs come in when the old ones are through
        m_pool = std::make_unique<WorkerPool>(m_work, jobs, m_options.ahead.value_or(jobs));
        m_poolSize = jobs;
    }
    guarded([&] {
        const size_t held = jobs + m_options.ahead.value_or(jobs);
        m_connection->consume(m_queues.jobs, static_cast<uint16_t>(std::min<size_t>(held, UINT16_MAX)));
        m_isConsuming = true;
    });
}

bool JobWorker::isIdle() {
    if (!m_isConsuming || !m_atWork.empty() || !m_waiting.empty() || !m_settlements.isEmpty()) return false;
    if (Clock::now() < m_idleCheckDue) return false;
    m_idleCheckDue = Clock::now() + std::chrono::seconds(1);
    bool isEmpty = false;
    guarded([&] {
        isEmpty = m_connection->depth(m_queues.jobs) == 0U && m_connection->depth(m_queues.retry) == 0U;
        hear();
    });
    return isEmpty && m_waiting.empty();
}

void JobWorker::hear() {
    while (std::optional<BrokerEvent> event = m_connection->next(std::chrono::milliseconds(0)))
        take(std::move(*event));
}

void JobWorker::take(BrokerEvent event) {
    if (event.kind == BrokerEvent::Kind::cancelled)
        throw BrokerError("the queue " + m_queues.jobs + " is gone");
    if (event.kind != BrokerEvent::Kind::delivery) {
        for (const Settled& settled : m_settlements.take(event)) {
            const auto finished = m_finished.extract(settled.tag);
            if (!settled.isSafe) {
                m_connection->giveBack(settled.tag);
                continue;
            }
            m_connection->acknowledge(settled.tag);
            if (finished) m_work.finished(finished.mapped().input, finished.mapped().name);
        }
        return;
    }
    Delivery delivery{.tag = event.tag, .connection = m_connections, .tries = triesOf(event.message)};
    delivery.message = std::move(event.message);
    keepHeaders(delivery.message.headers);
    if (!m_isConsuming) return giveBack(delivery);
    m_losses = 0;
    try {
        delivery.job = parseJob(delivery.message.body);
        m_waiting.push_back(std::move(delivery));
    } catch (const JobError& error) {
        bury(delivery, nullptr, {.errorClass = ErrorClass::request, .cause = error.what()});
    }
}

void JobWorker::giveOut() {
    while (m_pool && m_pool->isFree() && !m_waiting.empty()) {
        Delivery delivery = std::move(m_waiting.front());
        m_waiting.pop_front();
        SpoolObject object{.name = delivery.job.name, .path = delivery.job.input};
        object.tries = delivery.tries;
        object.ticket = ++m_tickets;
        m_atWork[m_tickets] = std::move(delivery);
        m_pool->give(std::move(object));
    }
}

void JobWorker::settle(const FinishedWork& finished) {
    const Delivery delivery = std::move(m_atWork.extract(finished.object.ticket).mapped());
    const WorkResult& result = finished.result;
    if (result.kind == WorkResult::Kind::done) m_pauses = 0;
    if (!m_connection || delivery.connection != m_connections) {
        m_say(delivery.job.name + ": the broker was lost meanwhile, it will be done again");
        return;
    }
    guarded([&] {
        switch (result.kind) {
            case WorkResult::Kind::done:
            case WorkResult::Kind::submitted:
                return done(delivery, finished.object, result);
            case WorkResult::Kind::changed:
                return failed(
                    delivery, finished.object,
                    {.errorClass = ErrorClass::file, .cause = "it was written on while it was in work"});
            case WorkResult::Kind::unreachable:
                giveBack(delivery);
                return pause(result.cause);
            case WorkResult::Kind::failed:
            case WorkResult::Kind::passed:
                return failed(delivery, finished.object, result);
        }
    });
}

void JobWorker::done(const Delivery& delivery, const SpoolObject& object, const WorkResult& result) {
    if (result.isRepeat) return m_connection->acknowledge(delivery.tag);
    std::vector<uint64_t> numbers;
    announce(delivery, object, result, numbers);
    m_finished[delivery.tag] = delivery.job;
    m_settlements.add(delivery.tag, numbers);
    ++m_figures.done;
    m_figures.seconds += result.seconds;
    if (!result.warnings.empty()) ++m_figures.warned;
    for (const std::string& warning : result.warnings)
        m_say(delivery.job.name + ": warning: " + warning);
}

void JobWorker::failed(const Delivery& delivery, const SpoolObject& object, const WorkResult& result) {
    switch (remedyFor(result.errorClass)) {
        case Remedy::wait:
            giveBack(delivery);
            return pause(result.cause);
        case Remedy::later:
            if (delivery.tries + 1 < m_options.tries) return tryLater(delivery, result);
            return bury(delivery, &object, result);
        case Remedy::none:
            return bury(delivery, &object, result);
    }
}

void JobWorker::tryLater(const Delivery& delivery, const WorkResult& result) {
    const auto pause = pauseAfter(delivery.tries + 1);
    BrokerMessage message = delivery.message;
    message.headers[kTries] = static_cast<int64_t>(delivery.tries) + 1;
    message.expiration = pause;
    m_settlements.add(delivery.tag, {m_connection->publish("", m_queues.retry, message, true)});
    ++m_figures.retries;
    m_say(delivery.job.name + ": " + result.cause + "; again in " + std::to_string(pause.count()) + " s");
}

void JobWorker::bury(const Delivery& delivery, const SpoolObject* object, const WorkResult& result) {
    BrokerMessage message = delivery.message;
    message.headers[kTries] = static_cast<int64_t>(delivery.tries) + 1;
    message.headers["vintak-class"] = nameOf(result.errorClass);
    message.headers["vintak-cause"] = result.cause.substr(0, kLongestCause);
    message.headers["vintak-worker"] = m_options.name;
    message.headers["vintak-time"] = utcNow();
    std::vector<uint64_t> numbers{m_connection->publish("", m_queues.dead, message, true)};
    if (object) announce(delivery, *object, result, numbers);
    m_settlements.add(delivery.tag, numbers);
    ++m_figures.failed[static_cast<size_t>(result.errorClass)];
    m_say((object ? object->name : "a message") + ": " + result.cause);
}

// As a message of its own: one that is handed back has the broker count a try that never was.
void JobWorker::giveBack(const Delivery& delivery) {
    m_settlements.add(delivery.tag, {m_connection->publish("", m_queues.jobs, delivery.message, true)});
    ++m_figures.returned;
}

void JobWorker::announce(const Delivery& delivery, const SpoolObject& object, const WorkResult& result,
                         std::vector<uint64_t>& numbers) {
    WorkResult told = result;
    told.job = delivery.job.id;
    const std::string more = ",\"input\":" + jsonText(delivery.job.input) +
                             ",\"worker\":" + jsonText(m_options.name) +
                             ",\"tries\":" + std::to_string(delivery.tries + 1);
    numbers.push_back(m_connection->publish(m_queues.events, resultWord(told),
                                            {.body = eventText(object, told, more), .id = delivery.job.id},
                                            false));
}

void JobWorker::pause(const std::string& cause) {
    stopConsuming();
    if (Clock::now() < m_pausedUntil) return;  // another one of this round has met the same
    const auto pause = pauseAfter(++m_pauses);
    m_pausedUntil = Clock::now() + pause;
    m_say("pausing for " + std::to_string(pause.count()) + " s: " + cause);
}

void JobWorker::withdraw() {
    if (!m_pool) return;
    for (const SpoolObject& object : m_pool->takeBack()) {
        Delivery delivery = std::move(m_atWork.extract(object.ticket).mapped());
        if (delivery.connection == m_connections) m_waiting.push_back(std::move(delivery));
    }
}

// What was not begun others may have at once.
void JobWorker::stopConsuming() {
    if (!m_connection || !m_isConsuming) return;
    m_isConsuming = false;
    withdraw();
    m_connection->stopConsuming();
    for (; !m_waiting.empty(); m_waiting.pop_front())
        giveBack(m_waiting.front());
}

void JobWorker::writeFigures(bool now) {
    if (m_options.metrics.empty() || (!now && Clock::now() < m_figuresDue)) return;
    m_figuresDue = Clock::now() + kFigures;
    m_figures.waiting = m_waiting.size();
    m_figures.working = m_atWork.size();
    m_figures.connected = m_connection != nullptr;
    m_figures.paused = m_pauses > 0 && !m_isConsuming;
    const bool written = replaceFile(m_options.metrics, m_figures.text(::now()));
    if (!written && !m_complained) m_say("no metrics: " + m_options.metrics + ": " + std::strerror(errno));
    m_complained = !written;
}
