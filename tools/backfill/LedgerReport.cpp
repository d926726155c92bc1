#include "tools/backfill/LedgerReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "hsutils/Utils.h"
#include "hsutils/jsontext.h"
#include "tools/backfill/Owner.h"

namespace {

constexpr int kMinutes = 15;  ///< over which a rate is measured

void readTotals(Database& ledger, LedgerReport& report) {
    Statement totals(ledger,
                     "SELECT t.state, t.cause, t.objects, t.bytes, t.written, c.class, c.text FROM total t "
                     "LEFT JOIN cause c ON c.id = t.cause WHERE t.objects <> 0 ORDER BY t.objects DESC");
    while (totals.step()) {
        const auto state = static_cast<ObjectState>(totals.integer(0));
        LedgerReport::Count* const count = state == ObjectState::waiting     ? &report.waiting
                                           : state == ObjectState::done      ? &report.done
                                           : state == ObjectState::failed    ? &report.failed
                                           : state == ObjectState::submitted ? &report.submitted
                                                                             : &report.passed;
        count->objects += totals.integer(2);
        count->bytes += totals.integer(3);
        count->written += totals.integer(4);
        LedgerReport::Cause cause{totals.text(5), totals.text(6), totals.integer(2)};
        if (state == ObjectState::failed)
            report.causes.push_back(std::move(cause));
        else if (state == ObjectState::done && totals.integer(1) != 0)
            report.warnings.push_back(std::move(cause));
    }
}

void readWorkers(Database& ledger, LedgerReport& report, int64_t now) {
    Statement owners(
        ledger,
        "SELECT host, boot, space, pid, started, until, note, (SELECT count(*) FROM object WHERE "
        "state = 1 AND owner = owner.id) FROM owner");
    while (owners.step()) {
        const Owner owner{owners.text(0), owners.text(1), owners.text(2),
                          static_cast<pid_t>(owners.integer(3)), owners.integer(4)};
        report.workers.push_back({.host = owner.host,
                                  .note = owners.text(6),
                                  .pid = owner.pid,
                                  .claimed = owners.integer(7),
                                  .isGone = owner.isGone() || owners.integer(5) < now});
    }
}

// Seconds are those in which a worker worked: neither its pauses nor the night count.
void readRate(Database& ledger, LedgerReport& report, int64_t now) {
    Statement minutes(ledger,
                      "SELECT sum(objects), sum(bytes), sum(active) FROM (SELECT * FROM progress WHERE "
                      "minute <= ? ORDER BY minute DESC LIMIT ?)");
    minutes.with(now / 60, kMinutes).step();
    const auto objects = static_cast<double>(minutes.integer(0)),
               bytes = static_cast<double>(minutes.integer(1));
    const double active = minutes.real(2);
    minutes.end();
    if (active <= 0 || objects <= 0) return;
    const auto alive = std::count_if(report.workers.begin(), report.workers.end(),
                                     [](const auto& worker) { return !worker.isGone; });
    const double workers = std::max<double>(1, static_cast<double>(alive));
    report.objectsPerSecond = objects / active * workers;
    report.bytesPerSecond = bytes / active * workers;
    const auto left = static_cast<double>(report.waiting.objects);
    report.secondsLeft = report.bytesPerSecond > 0 && report.waiting.bytes > 0
                             ? static_cast<double>(report.waiting.bytes) / report.bytesPerSecond
                             : left / report.objectsPerSecond;
}

std::string number(double value, const char* format = "%.1f") {
    char text[64];
    (void)snprintf(text, sizeof text, format, value);
    return text;
}

std::string megabytes(int64_t bytes) {
    return number(static_cast<double>(bytes) / 1e6) + " MB";
}

std::string line(const char* name, const LedgerReport::Count& count, const char* written = nullptr) {
    char text[160];
    (void)snprintf(text, sizeof text, "%-12s %12lld objects %16s", name,
                   static_cast<long long>(count.objects), megabytes(count.bytes).c_str());
    return text + (written ? std::string(", ") + megabytes(count.written) + written : "") + "\n";
}

std::string timeText(double seconds) {
    const auto whole = std::llround(seconds);
    char text[64];
    (void)snprintf(text, sizeof text, "%lld h %02lld min %02lld s", whole / 3600, whole / 60 % 60,
                   whole % 60);
    return text;
}

std::string entry(const char* name, const LedgerReport::Count& count) {
    return std::string("\"") + name + "\":{\"objects\":" + std::to_string(count.objects) +
           ",\"bytes\":" + std::to_string(count.bytes) + ",\"written\":" + std::to_string(count.written) +
           "}";
}

std::string listOf(const std::vector<LedgerReport::Cause>& causes) {
    std::string text = "[";
    for (const auto& cause : causes)
        text += (text.size() > 1 ? ",{" : "{") + std::string("\"class\":") + jsonText(cause.errorClass) +
                ",\"cause\":" + jsonText(cause.text) + ",\"objects\":" + std::to_string(cause.objects) + "}";
    return text + "]";
}

std::vector<int64_t> causesOfFailures(Database& ledger, const std::string& errorClass) {
    std::vector<int64_t> causes;
    Statement find(
        ledger,
        "SELECT t.cause FROM total t JOIN cause c ON c.id = t.cause WHERE t.state = 3 AND ? IN ('', "
        "c.class)");
    find.with(errorClass);
    while (find.step())
        causes.push_back(find.integer(0));
    return causes;
}

}  // namespace

LedgerReport reportOf(Database& ledger, int64_t now) {
    LedgerReport report;
    report.head = headOf(ledger);
    // One moment for all of it.
    ledger.run("BEGIN");
    report.isListed = !settingOf(ledger, "listed").empty();
    report.isPaused = !settingOf(ledger, "paused").empty();
    Statement folders(ledger, "SELECT max(id) FROM folder");
    folders.step();
    report.folders = folders.integer(0);
    folders.end();
    readTotals(ledger, report);
    readWorkers(ledger, report, now);
    readRate(ledger, report, now);
    ledger.run("COMMIT");
    return report;
}

std::string textOf(const LedgerReport& report) {
    std::string text = "archive " + report.head.archive + ", results " + report.head.results + ", shard " +
                       report.head.shard + "\n" + (report.isListed ? "listed: " : "listing goes on: ") +
                       std::to_string(report.folders) + " folders\n";
    if (report.isPaused) text += "paused by an operator\n";
    text += line("waiting", report.waiting) + line("done", report.done, " written") +
            line("failed", report.failed) + line("passed over", report.passed);
    if (report.submitted.objects > 0) text += line("in the queue", report.submitted);
    if (report.secondsLeft) {
        text += "rate: " + number(report.objectsPerSecond) + " objects/s, " +
                number(report.bytesPerSecond / 1e6) + " MB/s\ntime left: " + timeText(*report.secondsLeft) +
                (report.isListed ? "\n" : " for what is listed so far\n");
    }
    for (const auto& cause : report.causes)
        text +=
            "failed, " + cause.errorClass + ": " + std::to_string(cause.objects) + " " + cause.text + "\n";
    for (const auto& cause : report.warnings)
        text += "warning: " + std::to_string(cause.objects) + " " + cause.text + "\n";
    for (const auto& worker : report.workers)
        text += "worker " + std::to_string(worker.pid) + " on " + worker.host + ", " +
                std::to_string(worker.claimed) + " claimed: " + (worker.isGone ? "gone" : worker.note) + "\n";
    return text;
}

std::string jsonOf(const LedgerReport& report) {
    std::string text = "{\"schema\":1,\"archive\":" + jsonText(report.head.archive) +
                       ",\"results\":" + jsonText(report.head.results) +
                       ",\"shard\":" + jsonText(report.head.shard) +
                       ",\"listed\":" + (report.isListed ? "true" : "false") +
                       ",\"paused\":" + (report.isPaused ? "true" : "false") + ",";
    text += entry("waiting", report.waiting) + "," + entry("done", report.done) + "," +
            entry("failed", report.failed) + "," + entry("passed", report.passed) + "," +
            entry("submitted", report.submitted) +
            ",\"objectsPerSecond\":" + number(report.objectsPerSecond, "%.3f") +
            ",\"bytesPerSecond\":" + number(report.bytesPerSecond, "%.0f");
    text += ",\"secondsLeft\":" + (report.secondsLeft ? number(*report.secondsLeft, "%.0f") : "null");
    text += ",\"causes\":" + listOf(report.causes) + ",\"warnings\":" + listOf(report.warnings) +
            ",\"workers\":[";
    for (size_t i = 0; i < report.workers.size(); ++i) {
        const auto& worker = report.workers[i];
        text += (i > 0 ? ",{" : "{") + std::string("\"host\":") + jsonText(worker.host) +
                ",\"pid\":" + std::to_string(worker.pid) + ",\"claimed\":" + std::to_string(worker.claimed) +
                ",\"gone\":" + (worker.isGone ? "true" : "false") + ",\"note\":" + jsonText(worker.note) +
                "}";
    }
    return text + "]}\n";
}

void tellFailures(
    Database& ledger, const std::string& errorClass,
    const std::function<void(const std::string&, const std::string&, const std::string&, int64_t)>& tell) {
    Statement failures(
        ledger,
        "SELECT CASE WHEN f.path = x'' THEN o.name WHEN o.name = x'' THEN f.path ELSE f.path || "
        "'/' || o.name END, c.class, c.text, o.tries FROM cause c JOIN object o ON o.cause = c.id "
        "AND o.state = 3 JOIN folder f ON f.id = o.folder WHERE ? IN ('', c.class)");
    failures.with(errorClass);
    while (failures.step())
        tell(failures.text(0), failures.text(1), failures.text(2), failures.integer(3));
}

int64_t retryFolders(Database& ledger, const std::string& errorClass) {
    int64_t retried = 0;
    Transaction transaction(ledger);
    Statement forget(ledger, "DELETE FROM object WHERE state = 3 AND cause = ? AND name = x''");
    Statement total(ledger, "UPDATE total SET objects = objects - ? WHERE state = 3 AND cause = ?");
    for (const int64_t cause : causesOfFailures(ledger, errorClass)) {
        forget.with(cause).run();
        const int64_t folders = ledger.changes();
        if (folders > 0) total.with(folders, cause).run();
        retried += folders;
    }
    if (retried > 0) setSetting(ledger, "listed", "");
    transaction.commit();
    return retried;
}

int64_t retryFailures(Database& ledger, const std::string& errorClass) {
    constexpr int kAtOnce = 5000;
    Statement change(ledger,
                     "UPDATE object SET state = 0, tries = 0, cause = 0, at = 0 WHERE id IN (SELECT id FROM "
                     "object WHERE state = 3 AND cause = ? LIMIT ?) RETURNING size");
    Statement total(ledger,
                    "INSERT INTO total VALUES (?, ?, ?, ?, 0) ON CONFLICT DO UPDATE SET objects = objects + "
                    "excluded.objects, bytes = bytes + excluded.bytes");
    int64_t retried = 0;
    for (const int64_t cause : causesOfFailures(ledger, errorClass)) {
        for (int64_t objects = kAtOnce; objects == kAtOnce;) {
            Transaction transaction(ledger);
            int64_t bytes = objects = 0;
            change.with(cause, kAtOnce);
            for (; change.step(); ++objects)
                bytes += change.integer(0);
            total.with(static_cast<int>(ObjectState::failed), cause, -objects, -bytes).run();
            total.with(static_cast<int>(ObjectState::waiting), 0, objects, bytes).run();
            transaction.commit();
            retried += objects;
        }
    }
    return retried;
}
