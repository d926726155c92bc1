#include "vintakd/pool/servantduty.h"

#include <algorithm>
#include <cstring>

#include "hsutils/Utils.h"

static_assert(std::atomic<int64_t>::is_always_lock_free);
static_assert(std::atomic<RequestKind>::is_always_lock_free);

namespace {

bool allAtWork(const ServantReports& reports) {
    for (size_t i = 0; i < reports.size(); ++i)
        if (reports[i].busySince == 0) return false;
    return true;
}

// A servant that ends its work while another begins must leave no mark behind: each writes its own word first
// and reads the others' afterwards.
void markBusy(ServantReports& reports, ServantReport& own, PoolCounters& counters) {
    const int64_t now = nanoTime();
    own.busySince = now;
    int64_t none = 0;
    if (!allAtWork(reports) || !counters.fullSince.compare_exchange_strong(none, now)) return;
    ++counters.timesFull;
    if (!allAtWork(reports)) counters.fullSince = 0;
}

}  // namespace

std::string ServantReport::printable() const {
    return ::printable({request, strnlen(request, kTextBytes)});
}

void markIdle(ServantReport& report, PoolCounters& counters) {
    if (report.busySince.exchange(0) == 0) return;
    if (const int64_t since = counters.fullSince.exchange(0))
        counters.fullNanoseconds += static_cast<uint64_t>(nanoTime() - since);
}

namespace servantduty {

namespace {

ServantReports* s_reports = nullptr;
ServantReport* s_report = nullptr;
PoolCounters* s_counters = nullptr;
const ServantLimits* s_limits = nullptr;
IdleBell* s_bell = nullptr;
size_t s_channel = 0;
uint64_t s_requestEnd = 0;

/// The time of a conversion's next frame begins.
void beginFrame() {
    s_report->onFrameTime = s_limits->allowFrame(s_requestEnd);
}

}  // namespace

void adopt(ServantReports& reports, size_t channel, PoolCounters& counters, const ServantLimits& limits,
           IdleBell& bell) {
    s_reports = &reports;
    s_report = &reports[channel];
    s_counters = &counters;
    s_limits = &limits;
    s_channel = channel;
    s_bell = &bell;
    end();
}

void knocked() {
    if (s_bell) s_bell->ring();
}

void begin() {
    if (!s_report) return;
    s_requestEnd = s_limits->allowRequest();
    s_report->onFrameTime = false;
    s_report->request[0] = '\0';
    s_report->kind = RequestKind::unread;
    s_report->number = ++s_counters->lastRequest;
    markBusy(*s_reports, *s_report, *s_counters);
    s_bell->ring();
}

void kind(RequestKind kind) {
    if (!s_report) return;
    s_report->kind = kind;
    if (kind == RequestKind::convert) beginFrame();
}

void name(const std::string& text) {
    if (!s_report) return;
    const size_t count = std::min(text.size(), ServantReport::kTextBytes - 1);
    std::memcpy(s_report->request, text.data(), count);
    s_report->request[count] = '\0';
}

uint64_t outputBytes() {
    return s_limits ? s_limits->outputBytes : 0;
}

void written(uint64_t frames, uint64_t bytes) {
    if (!s_counters) return;
    if (frames > 0) beginFrame();
    s_counters->frames += frames;
    s_counters->bytesWritten += bytes;
}

void account(const RequestRecord& record) {
    if (!s_report) return;
    // What did not even arrive has no number yet.
    const uint64_t number = s_report->busySince != 0 ? s_report->number.load() : ++s_counters->lastRequest;
    accountRequest(*s_counters, record, number, s_channel);
}

void end() {
    if (!s_report) return;
    markIdle(*s_report, *s_counters);
    s_report->request[0] = '\0';
}

}  // namespace servantduty
