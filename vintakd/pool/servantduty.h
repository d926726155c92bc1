#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "vintakd/pool/IdleBell.h"
#include "vintakd/pool/PoolCounters.h"
#include "vintakd/pool/RequestRecord.h"
#include "vintakd/pool/ServantLimits.h"
#include "vintakd/pool/SharedArray.h"

/// What a servant tells its supervisor about the request in its hands; lies in memory that both share. The
/// supervisor reads the text only when the servant is dead, and takes nothing in it on trust.
struct ServantReport {
    static constexpr size_t kTextBytes = 2048;

    std::atomic<int64_t> busySince{0};  ///< nanoTime() at the arrival of the request; 0: none
    Counter number{0};                  ///< of the request
    std::atomic<bool> onFrameTime{
        false};  ///< the limit of a frame's processor time comes before the request's
    std::atomic<RequestKind> kind{RequestKind::unread};
    char request[kTextBytes] = {};  ///< what is being served, in UTF-8 or not, NUL-terminated or not

    /// The text, cut where needed and fit for one log line: see printable().
    std::string printable() const;
};

/// One report a channel, shared with every process that is forked afterwards.
using ServantReports = SharedArray<ServantReport>;

/// Notes that a servant has nothing in its hands any more, and until when all servants had.
void markIdle(ServantReport& report, PoolCounters& counters);

/// The servant process's side; all do nothing where nobody has called adopt(), and begin() then sets no
/// limit.
namespace servantduty {

/// In the new servant process: where to report and to count, and what each request may use. All are borrowed.
void adopt(ServantReports& reports, size_t channel, PoolCounters& counters, const ServantLimits& limits,
           IdleBell& bell);
/// Somebody is at the channel: a supervisor that sleeps because nobody was is to look again.
void knocked();
/// A request has arrived: its time and its processor time begin.
void begin();
/// What kind of request it is; with a conversion the processor time of its first frame begins.
void kind(RequestKind kind);
/// What the request is about: the path of the object in work.
void name(const std::string& text);
/// Bytes that the output files of one request may have together; 0: no limit.
uint64_t outputBytes();
/// So many frames' files, and so many bytes, have been written since the last call; the next frame's
/// processor time begins.
void written(uint64_t frames, uint64_t bytes);
/// What became of the request is counted, and logged in one line. The pool's servants call it once for each.
void account(const RequestRecord& record);
/// The request is done, whatever became of it.
void end();

}  // namespace servantduty
