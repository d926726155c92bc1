#include "vintakd/pool/RequestRecord.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

#include "hsutils/Utils.h"
#include "hsutils/jsontext.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/pool/logformat.h"

namespace {

std::string seconds(int64_t nanoseconds) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.6f", nanoToSec(nanoseconds));
    return text;
}

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char character : printable(text)) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result + '"';
}

/// The line's members in their order; `text` writes a text, `join` a member.
template <class Text, class Member>
void visit(const RequestRecord& record, const std::string& name, size_t channel, Text text, Member member) {
    member("id", text(name));
    member("channel", std::to_string(channel));
    member("kind", text(nameOf(record.kind)));
    member("object", text(record.object));
    member("result", text(nameOf(record.result)));
    member("class", text(nameOf(record.errorClass)));
    member("cause", text(record.cause));
    member("files", std::to_string(record.files));
    member("frames", std::to_string(record.frames));
    member("bytes_in", std::to_string(record.bytesRead));
    member("bytes_out", std::to_string(record.bytesWritten));
    member("seconds", seconds(record.duration));
    for (size_t i = 0; i < kStages; ++i)
        member(nameOf(static_cast<Stage>(i)), seconds(record.stages[i]));
}

dcmtk::log4cplus::LogLevel levelOf(const RequestRecord& record) {
    using namespace dcmtk::log4cplus;
    if (record.result == RequestResult::warned) return WARN_LOG_LEVEL;
    if (record.result != RequestResult::done) return ERROR_LOG_LEVEL;
    return record.kind == RequestKind::ping ? DEBUG_LOG_LEVEL : INFO_LOG_LEVEL;
}

}  // namespace

std::string requestName(const PoolCounters& counters, uint64_t number) {
    char text[48];
    (void)std::snprintf(text, sizeof text, "%llx-%llu",
                        static_cast<unsigned long long>(counters.startTime.load()),
                        static_cast<unsigned long long>(number));
    return text;
}

std::string requestText(const RequestRecord& record, const std::string& name, size_t channel) {
    std::string line = "vintakd request";
    const auto text = [](const std::string& value) {
        return value.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string::npos &&
                       !value.empty()
                   ? value
                   : quoted(value);
    };
    visit(record, name, channel, text, [&line](const char* key, const std::string& value) {
        line += std::string(" ") + key + "=" + value;
    });
    return line;
}

std::string requestJson(const RequestRecord& record, const std::string& name, size_t channel) {
    std::string line;
    visit(
        record, name, channel, [](const std::string& value) { return jsonText(value); },
        [&line](const char* key, const std::string& value) {
            line += (line.empty() ? "" : ",") + jsonText(key) + ":" + value;
        });
    return line;
}

void accountRequest(PoolCounters& counters, const RequestRecord& record, uint64_t number, size_t channel) {
    const auto kind = static_cast<size_t>(record.kind);
    ++counters.requests[kind][static_cast<size_t>(record.result)];
    if (record.errorClass != ErrorClass::none)
        ++counters.errors[kind][static_cast<size_t>(record.errorClass)];
    counters.files += record.files;
    counters.bytesRead += record.bytesRead;
    counters.requestDurations[kind].add(record.duration);
    // It is a client's word: a day is more than any of them waits.
    constexpr uint64_t kMostWaited = 86'400'000'000'000;
    if (record.waited) counters.reservations.add(static_cast<int64_t>(std::min(*record.waited, kMostWaited)));
    for (size_t i = 0; i < kStages; ++i)
        if (record.stages[i] > 0) counters.stageDurations[i].add(record.stages[i]);

    OFLogger logger = requestLogger();
    const auto level = levelOf(record);
    if (!logger.isEnabledFor(level)) return;
    const std::string name = requestName(counters, number);
    const std::string line =
        logIsJson() ? requestJson(record, name, channel) : requestText(record, name, channel);
    logger.log(level, OFString(line.data(), line.size()));
}
