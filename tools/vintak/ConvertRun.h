#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "tools/command/Conversion.h"
#include "tools/spool/FailedFolder.h"
#include "tools/vintak/ConvertReport.h"
#include "tools/vintak/SpreadConversion.h"

/// What `vintak convert` was asked to do.
struct ConvertOptions {
    std::vector<std::string> words;  ///< files and folders
    std::string list;                ///< of more of them: a file or "-"; empty for none
    char separator = '\n';           ///< of the list
    std::string output;              ///< prefixes, absolute
    std::string cache;
    int writeMask = 3;
    bool packed = false;
    int frame = 0;
    bool noCache = false;
    bool needOptimize = true;
    bool json = false;
    bool skipExisting = false;
    std::string failedFolder;  ///< empty for none
    size_t jobs = 0;           ///< at most; 0: some for each processor
    size_t parts = 0;          ///< that every object is cut into; 0: large ones, for servants that are idle
};

/// The name under which a file's results are written: without folder and without ".dcm".
std::string resultName(const std::string& file);

/// One run over all objects. Its memory does not grow with their number, but for eight bytes of each name and
/// what a table of these takes.
class ConvertRun {
public:
    /// Borrows all. Throws std::runtime_error for a list or a folder that cannot be used.
    ConvertRun(const ConvertOptions& options, Session& session);

    /// Converts; an exit code. Throws NoDaemon when the daemon goes away, after it has said how far it came.
    int run();

private:
    /// The words and the list again, from the beginning.
    ObjectSource source() const;
    bool next(ConversionJob& job);
    void convert(const ConversionJob& job);
    void fail(const ConversionJob& job, const Outcome& outcome, const ConversionTime& time);
    /// Objects that are converted at the same time, at most and at least.
    size_t jobs() const { return m_options.jobs > 0 ? m_options.jobs : m_session.channels(); }
    size_t leastJobs() const;
    SpreadRule spreadRule() const;
    Request requestFor(const FoundObject& object) const;
    void tellWhatIsLeft();
    std::string summary() const;

    const ConvertOptions& m_options;
    Session& m_session;
    SpreadConversion m_spread;
    std::optional<FailedFolder> m_failed;
    ConvertReport m_report;
    ObjectSource m_source;
    std::unordered_set<uint64_t> m_names;  ///< hashes of the prefixes that results were written under
    double m_start;
    SpreadRule m_rule;
};
