#pragma once

#include "kelt4/aligned.h"

namespace dvq::kelt4 {

/// Root of everything that produces or consumes a bit stream.
class CBitStreamer : public CAligned<8> {
public:
    virtual ~CBitStreamer() = default;

    CBitStreamer() = default;
    CBitStreamer(const CBitStreamer&) = delete;
    CBitStreamer& operator=(const CBitStreamer&) = delete;
};

/// A streamer whose bits are stored as they are.
class CBitRawStreamer : public CBitStreamer {
public:
    virtual const char* getCode() const { return "raw"; }
};

/// A streamer whose bits are run-length coded.
class CBitCoder : public CBitStreamer {
public:
    virtual const char* getCode() const { return "rleish"; }
};

}  // namespace dvq::kelt4
