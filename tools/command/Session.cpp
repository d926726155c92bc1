#include "tools/command/Session.h"

#include <utility>

#include "hsutils/ClassedError.h"
#include "vintakd/ipc/ipcexceptions.h"

namespace {

constexpr ipc::timeout kReservationRound{5000};

/// Takes the character set off the end of an answer.
Outcome splitAnswer(std::string answer) {
    Outcome outcome{.done = true, .text = std::move(answer)};
    const size_t open = outcome.text.rfind("<<<");
    const size_t close = outcome.text.rfind(">>>");
    if (open == std::string::npos || close == std::string::npos || close < open) return outcome;
    outcome.characterSet = outcome.text.substr(open + 3, close - open - 3);
    outcome.text.resize(open);
    return outcome;
}

}  // namespace

Session::Session(std::string segment) : m_segment(std::move(segment)) {
    const std::string nobody = "no daemon is running behind the segment \"" + m_segment + "\"";
    try {
        m_gateway = std::make_unique<Gateway>(m_segment.c_str());
    } catch (const SharedMemoryNotAllowedException&) {
        throw NotAllowed("not allowed: the segment \"" + m_segment +
                         "\" belongs to another account; clients run under the daemon's");
    } catch (const SharedMemoryDoesNotExistsException&) {
        throw NoDaemon(nobody);
    }
    if (!m_gateway->daemonLives()) throw NoDaemon(nobody + " (a daemon that was killed left it)");
    m_gateway->setTimeout(kReservationRound, false);
}

Outcome Session::call(const Request& request) {
    std::vector<std::string> warnings;
    if (request.part.isSpread()) {
        Outcome outcome = splitAnswer(vintakd::vintakPart(
            *m_gateway, request.inputFile.c_str(), request.outputPrefix.c_str(), request.cachePrefix.c_str(),
            request.needOptimize, request.noCached, request.writeMask, 0, request.part, warnings));
        outcome.warnings = std::move(warnings);
        return outcome;
    }
    std::vector<const char*> files;
    for (const std::string& file : request.files)
        files.push_back(file.c_str());
    Outcome outcome = splitAnswer(vintakd::vintak(
        *m_gateway, request.inputFile.c_str(), request.outputPrefix.c_str(), request.cachePrefix.c_str(),
        request.verbose, request.dumponly, request.escapeNewLines, request.needOptimize, request.noCached,
        static_cast<int>(request.tags.size() / 2), request.tagsOnce, request.tags.data(),
        static_cast<int>(files.size()), files.data(), request.writeMask, 0, request.specificFrame, warnings));
    outcome.warnings = std::move(warnings);
    return outcome;
}

Outcome Session::ask(const Request& request, const std::function<bool()>& givesUp) {
    for (;;) {
        try {
            return call(request);
        } catch (const ClassedError& error) {
            return {.text = error.text(), .kind = error.kind()};
        } catch (const ConnectionTimeoutException&) {
            if (!m_gateway->daemonLives()) throw NoDaemon("the daemon went away");
            if (givesUp && givesUp())
                return {.text = "interrupted", .kind = ErrorClass::exchange, .givenUp = true};
        } catch (const TimeoutException&) {
            if (!m_gateway->daemonLives()) throw NoDaemon("the daemon went away");
            return {.text = "the servant fell silent", .kind = ErrorClass::exchange};
        } catch (const ipc::UserException&) {
            if (!m_gateway->daemonLives()) throw NoDaemon("the daemon went away");
            return {.text = "the servant ended while it worked on the request", .kind = ErrorClass::crash};
        } catch (const ipc::ChannelException&) {
            return {.text = "the exchange with the servant fell out of step", .kind = ErrorClass::exchange};
        }
    }
}
