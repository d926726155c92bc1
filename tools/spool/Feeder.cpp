#include "tools/spool/Feeder.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "hsutils/Utils.h"
#include "hsutils/replacefile.h"
#include "tools/feeding/RetryPolicy.h"

namespace {

constexpr size_t kMostParked = 1000;
constexpr std::chrono::seconds kFigures{2};
constexpr int kRoundMs = 200;

double toSeconds(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return toSeconds(time);
}

}  // namespace

Feeder::Feeder(const FeederOptions& options, SpoolWork& work, std::function<void(const std::string&)> say)
    : m_options(options),
      m_say(std::move(say)),
      m_folders(options.folder, options.keepDone),
      m_events(options.folder + "/events.jsonl"),
      m_priority(m_folders.priority(), options.settle),
      m_incoming(m_folders.incoming(), options.settle),
      m_pool(work, options.jobs, options.ahead) {
    m_figures.startTime = now();
    recover();
}

Feeder::~Feeder() {
    (void)m_events.sync();
    if (!m_options.metrics.empty()) unlink(m_options.metrics.c_str());
}

// What an earlier run had in its hands is done again: whether it was done nobody wrote down.
void Feeder::recover() {
    for (const std::string& name : m_folders.list("working")) {
        m_busy.insert(keyOf(name));
        m_held.push_back(m_folders.inWork(name));
    }
    for (const std::string& name : m_folders.list("retry")) {
        m_busy.insert(keyOf(name));
        m_parked[name] = {};
    }
}

void Feeder::run(const std::function<bool()>& stops) {
    m_notifier.ready("feeding");
    while (!stops())
        round(true);
    m_notifier.stopping();
    for (SpoolObject& object : m_pool.takeBack())
        m_held.push_back(std::move(object));
    while (m_pool.atWork() > 0)
        round(false);
    writeFigures(true);
}

void Feeder::runUntilEmpty(const std::function<bool()>& stops) {
    run([&] { return stops() || isEmpty(); });
}

bool Feeder::isEmpty() const {
    return m_pool.atWork() == 0 && m_held.empty() && m_parked.empty() && m_incoming.waiting() == 0 &&
           m_priority.waiting() == 0 && !m_incoming.isUnsettled() && !m_priority.isUnsettled();
}

void Feeder::round(bool takesMore) {
    m_priority.update();
    m_incoming.update();
    for (FinishedWork& finished : m_pool.take())
        settle(std::move(finished));
    if (takesMore) giveOut();
    writeFigures(false);
    m_notifier.alive();
    waitForNews();
}

void Feeder::waitForNews() const {
    pollfd files[] = {{m_pool.descriptor(), POLLIN, 0},
                      {m_incoming.descriptor(), POLLIN, 0},
                      {m_priority.descriptor(), POLLIN, 0}};
    // Two of our own events follow each object that is taken; while all workers have work they can wait.
    poll(files, m_pool.isFree() ? 3 : 1, kRoundMs);
}

void Feeder::giveOut() {
    if (Clock::now() < m_pausedUntil) return;
    while (m_pool.isFree()) {
        std::optional<SpoolObject> object = next();
        if (!object) return;
        if (!SpoolFolders::isThere(*object)) {
            m_busy.erase(object->key());  // somebody took it out of "working"
            continue;
        }
        const std::string strange = SpoolFolders::strangeness(*object);
        if (strange.empty())
            m_pool.give(std::move(*object));
        else
            settle({*object, {.errorClass = ErrorClass::object, .cause = strange}});
    }
}

std::optional<SpoolObject> Feeder::next() {
    if (!m_held.empty()) {
        SpoolObject object = std::move(m_held.front());
        m_held.erase(m_held.begin());
        return object;
    }
    if (auto object = nextParked()) return object;
    if (auto object = nextOf(m_priority, "incoming/priority", true)) return object;
    return nextOf(m_incoming, "incoming", false);
}

std::optional<SpoolObject> Feeder::nextParked() {
    for (auto parked = m_parked.begin(); parked != m_parked.end(); ++parked) {
        if (Clock::now() < parked->second.due) continue;
        const auto [name, state] = *parked;
        m_parked.erase(parked);
        std::optional<SpoolObject> object = m_folders.take("retry", name);
        if (!object) {  // somebody took it out of the folder
            m_busy.erase(keyOf(name));
            return nextParked();
        }
        object->tries = state.tries;
        if (state.arrived.tv_sec != 0) object->arrived = state.arrived;
        return object;
    }
    return std::nullopt;
}

std::optional<SpoolObject> Feeder::nextOf(IncomingFolder& folder, const char* from, bool priority) {
    const auto mayGo = [this](const std::string& name) { return !isBusy(name); };
    while (const std::optional<Waiting> waiting = folder.oldest(mayGo)) {
        std::optional<SpoolObject> object = m_folders.take(from, waiting->name);
        folder.taken(waiting->name);
        if (!object) continue;
        object->priority = priority;
        m_busy.insert(object->key());
        return object;
    }
    return std::nullopt;
}

void Feeder::settle(FinishedWork finished) {
    SpoolObject& object = finished.object;
    const WorkResult& result = finished.result;
    try {
        switch (result.kind) {
            case WorkResult::Kind::done:
            case WorkResult::Kind::submitted:
                return done(object, result);
            case WorkResult::Kind::unreachable:
                return hold(std::move(object), result.cause);
            case WorkResult::Kind::changed:
                return tryLater(m_folders.inWork(object.name), "it was written on while it was in work");
            case WorkResult::Kind::failed:
            case WorkResult::Kind::passed:
                break;
        }
        const Remedy remedy = remedyFor(result.errorClass);
        if (remedy == Remedy::wait) return hold(std::move(object), result.cause);
        if (remedy == Remedy::later && object.tries + 1 < m_options.tries)
            return tryLater(std::move(object), result.cause);
        failed(object, result);
    } catch (const std::runtime_error& error) {
        // The spool itself cannot be written: nothing was said of the object yet, so it is done again.
        hold(std::move(object), error.what());
    }
}

void Feeder::tell(const SpoolObject& object, const WorkResult& result) {
    m_events.write(object, result);
    if (m_options.sync && !m_events.sync())
        throw std::runtime_error(std::string("the event did not reach the disk: ") + std::strerror(errno));
}

void Feeder::done(const SpoolObject& object, const WorkResult& result) {
    tell(object, result);
    m_folders.finish(object);
    m_busy.erase(object.key());
    m_pauses = 0;
    ++m_figures.done;
    if (!result.warnings.empty()) ++m_figures.warned;
    m_figures.lagSeconds += now() - toSeconds(object.arrived);
    for (const std::string& warning : result.warnings)
        m_say(object.name + ": warning: " + warning);
}

void Feeder::failed(const SpoolObject& object, const WorkResult& result) {
    tell(object, result);
    m_folders.setAside(object, result.errorClass, result.cause);
    m_busy.erase(object.key());
    m_pauses = 0;
    ++m_figures.failed[static_cast<size_t>(result.errorClass)];
    m_say(object.name + ": " + result.cause);
}

void Feeder::tryLater(SpoolObject object, const std::string& cause) {
    if (m_parked.size() >= kMostParked) return hold(std::move(object), cause);
    m_folders.park(object);
    ++m_figures.retries;
    const auto pause = pauseAfter(++object.tries);
    m_parked[object.name] = {Clock::now() + pause, object.tries, object.arrived};
    m_say(object.name + ": " + cause + "; again in " + std::to_string(pause.count()) + " s");
}

void Feeder::hold(SpoolObject object, const std::string& cause) {
    ++m_figures.retries;
    m_held.push_back(std::move(object));
    if (Clock::now() < m_pausedUntil) return;  // another one of this round has met the same
    ++m_figures.pauses;
    const auto pause = pauseAfter(++m_pauses);
    m_pausedUntil = Clock::now() + pause;
    m_say("pausing for " + std::to_string(pause.count()) + " s: " + cause);
}

void Feeder::writeFigures(bool now) {
    if (!now && Clock::now() < m_figuresDue) return;
    m_figuresDue = Clock::now() + kFigures;
    if (!m_events.sync()) m_say(std::string("events did not reach the disk: ") + std::strerror(errno));
    if (m_options.metrics.empty()) return;
    m_figures.waiting = m_incoming.waiting() + m_priority.waiting();
    m_figures.working = m_pool.atWork() + m_held.size();
    m_figures.parked = m_parked.size();
    m_figures.paused = m_pauses > 0;
    m_figures.oldestSeconds = 0;
    const double time = ::now();
    for (const IncomingFolder* folder : {&m_incoming, &m_priority})
        if (const auto since = folder->oldestSince())
            m_figures.oldestSeconds = std::max(m_figures.oldestSeconds, time - toSeconds(*since));
    const bool written = replaceFile(m_options.metrics, m_figures.text(time));
    if (!written && !m_complained) m_say("no metrics: " + m_options.metrics + ": " + std::strerror(errno));
    m_complained = !written;
}
