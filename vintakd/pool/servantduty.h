#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "vintakd/pool/ServantLimits.h"

/// What a servant tells its supervisor about the request in its hands; lies in memory that both share. The
/// supervisor reads the text only when the servant is dead, and takes nothing in it on trust.
struct ServantReport {
    static constexpr size_t kTextBytes = 2048;

    std::atomic<int64_t> busySince{0};  ///< nanoTime() at the arrival of the request; 0: none
    char request[kTextBytes] = {};      ///< what is being served, in UTF-8 or not, NUL-terminated or not

    /// The text, cut where needed and fit for one log line: see printable().
    std::string printable() const;
};

/// One report a channel, shared with every process that is forked afterwards.
class ServantReports {
public:
    /// Throws std::runtime_error.
    explicit ServantReports(size_t count);
    ~ServantReports();
    ServantReports(const ServantReports&) = delete;
    ServantReports& operator=(const ServantReports&) = delete;

    ServantReport& operator[](size_t index) { return m_reports[index]; }

private:
    size_t m_bytes;
    ServantReport* m_reports;
};

/// The servant process's side; all do nothing where nobody has called adopt(), and begin() then sets no
/// limit.
namespace servantduty {

/// In the new servant process: where to report, and what each request may use. Both are borrowed.
void adopt(ServantReport& report, const ServantLimits& limits);
/// A request has arrived: its time and its processor time begin.
void begin();
/// What the request is about: the path of the object in work.
void name(const std::string& text);
/// Bytes that the output files of one request may have together; 0: no limit.
uint64_t outputBytes();
/// The request is done, whatever became of it.
void end();

}  // namespace servantduty
