#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

/// A folder of its own under the system's temporary folder, removed with everything in it.
class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "pbtest-XXXXXX").string();
        if (mkdtemp(name.data()) != nullptr) m_path = name;
    }
    ~TempDir() { std::filesystem::remove_all(m_path); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const char* name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// Adds an LO element of group F215, whatever any dictionary says of it.
inline void putText(DcmItem& item, Uint16 element, const char* text) {
    auto* lo = new DcmLongString(DcmTag(0xF215, element, DcmVR(EVR_LO)));
    lo->putString(text);
    ASSERT_TRUE(item.insert(lo).good());
}

/// The text of an element of group F215, "-" when the element is missing.
inline std::string textAt(DcmItem& item, Uint16 element) {
    const char* value = nullptr;
    if (item.findAndGetString(DcmTagKey(0xF215, element), value).bad()) return "-";
    return value != nullptr ? value : "";
}
