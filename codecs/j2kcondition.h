#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcerror.h>

#include <string>

/// The condition that our JPEG 2000 layer answers with: an error of the data module with `text` as its
/// reason.
inline OFCondition j2kError(const std::string& text) {
    constexpr unsigned short kConditionCode = 0x2000;
    return makeOFCondition(OFM_dcmdata, kConditionCode, OF_error, ("JPEG 2000: " + text).c_str());
}
