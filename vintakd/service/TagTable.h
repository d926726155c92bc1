#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <string>
#include <vector>

#include "vintakd/service/VintakRequest.h"

/// One requested tag with what was found: one value for every file, or a single one for a tag that is read
/// once.
struct TagValue {
    DcmTagKey key;
    std::vector<std::string> values;
};

/// The requested tags of one query and their captured values. The first entries are read from the first file
/// only.
class TagTable {
public:
    /// One empty value for each of the once-tags, one for each file for the others.
    void reset(const VintakRequest& request);
    void clear();

    bool empty() const { return m_entries.empty(); }
    /// Whether there are private ones among them that are not this system's.
    bool asksForForeign() const;
    /// The entries to look for in file `index`: all of them in the first file, the per-file ones in a later
    /// one.
    const TagValue* begin(int index) const { return m_entries.data() + first(index); }
    const TagValue* end() const { return m_entries.data() + m_entries.size(); }

    /// To be called before a file is walked.
    void rewind() { m_cursor = 0; }
    /// Records the value of `key` in file `index`, where the tag was asked for. Tags that arrive in the
    /// order of the request are found at the first look. Throws std::runtime_error when the values together
    /// have more bytes than an answer may have.
    void record(const DcmTagKey& key, int index, const std::string& value);

    /// "value;" for the once-tags, then file by file for the others.
    std::string answer() const;

private:
    size_t first(int index) const { return index == 0 ? 0 : m_once; }

    std::vector<TagValue> m_entries;
    size_t m_once = 0;
    size_t m_files = 0;
    size_t m_cursor = 0;
    size_t m_bytes = 0;  ///< of all recorded values
};
