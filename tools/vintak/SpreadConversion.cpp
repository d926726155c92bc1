#include "tools/vintak/SpreadConversion.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <thread>
#include <utility>
#include <vector>

namespace {

using vintakd::ConversionPart;

/// Whether one servant may do it where several did not: the cause lies in the object, or in the daemon, which
/// does not know parts.
bool mayBeWhole(ErrorClass kind) {
    return kind == ErrorClass::object || kind == ErrorClass::decode || kind == ErrorClass::unsupported ||
           kind == ErrorClass::request || kind == ErrorClass::other;
}

std::vector<Request> requestsFor(const Request& request, uint32_t frames, uint32_t parts) {
    std::vector<Request> requests(parts, request);
    uint32_t first = 1;
    for (uint32_t i = 0; i < parts; ++i) {
        const auto last = static_cast<uint32_t>(uint64_t{frames} * (i + 1) / parts);
        requests[i].part = {.number = i + 1, .parts = parts, .first = first, .last = last};
        first = last + 1;
    }
    return requests;
}

/// All requests at once; what one of them throws is thrown after the others came to their end.
std::vector<Outcome> askAll(Session& session, const std::vector<Request>& requests,
                            const std::function<bool()>& givesUp) {
    std::vector<Outcome> outcomes(requests.size());
    std::vector<std::exception_ptr> problems(requests.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < requests.size(); ++i)
        threads.emplace_back([&, i] {
            try {
                outcomes[i] = session.ask(requests[i], givesUp);
            } catch (...) {
                problems[i] = std::current_exception();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::exception_ptr& problem : problems)
        if (problem) std::rethrow_exception(problem);
    return outcomes;
}

/// What each part says, once.
void addWarnings(std::vector<std::string>& all, const std::vector<std::string>& more) {
    for (const std::string& warning : more)
        if (std::find(all.begin(), all.end(), warning) == all.end()) all.push_back(warning);
}

}  // namespace

Outcome SpreadConversion::ask(const Request& request, const SpreadRule& rule) {
    std::error_code ignored;
    const uintmax_t bytes = std::filesystem::file_size(request.inputFile, ignored);
    if (rule.parts < 2 || ignored || bytes < rule.leastBytes) return m_session.ask(request, m_givesUp);
    const uint32_t frames = framesOf(request);
    const auto parts = std::min<size_t>({rule.parts, frames / rule.leastFrames, ConversionPart::kMostParts});
    if (parts < 2) return m_session.ask(request, m_givesUp);
    Outcome outcome = askParts(request, frames, static_cast<uint32_t>(parts));
    if (outcome.done) return outcome;
    undo(request, frames);
    return mayBeWhole(outcome.kind) ? m_session.ask(request, m_givesUp) : outcome;
}

/// Number of Frames (0028,0008), 0 where the object does not tell.
uint32_t SpreadConversion::framesOf(const Request& request) {
    Request query;
    query.inputFile = request.inputFile;
    query.dumponly = true;
    query.tags = {0x0028, 0x0008};
    const Outcome outcome = m_session.ask(query, m_givesUp);
    const long frames = outcome.done ? std::strtol(outcome.text.c_str(), nullptr, 10) : 0;
    return frames > 0 && frames < INT32_MAX ? static_cast<uint32_t>(frames) : 0;
}

Outcome SpreadConversion::askParts(const Request& request, uint32_t frames, uint32_t parts) {
    std::vector<std::string> warnings;
    for (const Outcome& outcome : askAll(m_session, requestsFor(request, frames, parts), m_givesUp)) {
        if (!outcome.done) return outcome;
        addWarnings(warnings, outcome.warnings);
    }
    Request join = request;
    join.part = {.number = ConversionPart::kJoin, .parts = parts, .first = 1, .last = frames};
    Outcome outcome = m_session.ask(join, m_givesUp);
    if (outcome.done) addWarnings(outcome.warnings, warnings);
    return outcome;
}

void SpreadConversion::undo(Request request, uint32_t frames) {
    request.part = {.number = ConversionPart::kUndo, .parts = 1, .first = 1, .last = frames};
    (void)m_session.ask(request);
}
