#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vintakd/viewer/frameinfo.h"

/// What the frames of an object have of their own, frame after frame. An entry takes memory for what it has
/// and little more: an object of thousands of frames often tells nothing but where each of them lies.
class FrameInfoList {
public:
    /// As many frames, of which none has anything.
    void reset(size_t frames);
    size_t size() const { return m_size; }

    /// What the next frame has, from the first one on; beyond the last one nothing is kept. Of attributes
    /// without a flag nothing is kept either.
    void append(const CFrameInfo& info);
    /// What a frame has, from 0.
    CFrameInfo at(size_t index) const;

private:
    size_t m_size = 0;
    std::vector<size_t> m_ends;  ///< of the entries in the bytes
    std::string m_bytes;
};
