#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "hsutils/StageClock.h"
#include "hsutils/errorclass.h"
#include "vintakd/pool/PoolCounters.h"

/// All that is to be told of one request when it is over.
struct RequestRecord {
    RequestKind kind = RequestKind::unread;
    RequestResult result = RequestResult::lost;
    ErrorClass errorClass = ErrorClass::none;
    std::string object;  ///< path of the last object in work
    std::string cause;   ///< of a failure, or the warnings
    uint64_t files = 0;
    uint64_t frames = 0;
    uint64_t bytesRead = 0;
    uint64_t bytesWritten = 0;
    StageClock::Times stages{};      ///< ns
    int64_t duration = 0;            ///< ns
    std::optional<uint64_t> waited;  ///< ns for a channel, as the client tells it

    /// Takes down why there is no answer.
    void fail(RequestResult how, ErrorClass what, std::string why) {
        result = how;
        errorClass = what;
        cause = std::move(why);
    }
};

/// Name of a request that no other of its segment has: the start of the daemon in hexadecimal, and a number.
std::string requestName(const PoolCounters& counters, uint64_t number);

/// The words of the log line of a request: name=value pairs, texts between quotes and on one line.
std::string requestText(const RequestRecord& record, const std::string& name, size_t channel);
/// The same as members of a JSON object, without its braces.
std::string requestJson(const RequestRecord& record, const std::string& name, size_t channel);

/// Counts the request, but for what servantduty::written() has counted, and logs its line in the format of
/// the log.
void accountRequest(PoolCounters& counters, const RequestRecord& record, uint64_t number, size_t channel);
