#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/temporary_folder.h"

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
