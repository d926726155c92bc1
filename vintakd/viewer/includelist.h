#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <vector>

/// The private elements that stay in the data set, from configuration files with a line "(gggg,eeee)" for
/// each, in hexadecimal. Element 0000 stands for its whole group.
class IncludeList {
public:
    /// The list that the files in the folders "DOWNLOAD_HOME" and "CONF" of the environment make.
    static IncludeList configured();

    /// Adds the tags of a file; a file that cannot be opened adds nothing. Lines are read 254 characters at a
    /// time; one that is no tag adds (0000,0000).
    void read(const char* path);

    /// Whether the tag or its group is on the list; false for an empty list.
    bool includes(const DcmTagKey& tag) const;

    /// Sorted by group and element.
    const std::vector<DcmTagKey>& tags() const { return m_tags; }

private:
    std::vector<DcmTagKey> m_tags;
};
