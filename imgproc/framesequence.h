#pragma once

#include <cstdint>
#include <string>

#include "hsutils/errorclass.h"
#include "imgproc/framepart.h"

class FrameReader;

/// What became of an object's frames: a failure, a warning, or neither.
struct FramesVerdict {
    bool failed = false;
    std::string failure;  ///< its cause
    std::string warning;  ///< empty: there is nothing to warn of
};

/// The frames of one object that a conversion goes through, one after the other, and what the images that
/// came of them are worth: of a whole object fewer images than declared are worth a warning, none is a
/// failure; a part is whole, or it fails. Knows nothing of what is done with a frame.
class FrameSequence {
public:
    /// Borrows both. `part` that is set names the frames, else `specificFrame` of 1 or more names one, else
    /// all are meant.
    FrameSequence(FrameReader& frames, FramePart& part, int specificFrame);

    /// Why a part's frames cannot be found, or need something of those before them; empty where nothing is
    /// wrong, as always with other than parts. Notes in the part where its frames begin.
    std::string whyNotAlone(bool overlaysInSamples);

    /// The frame in work, counted from 0; the first one before anything was said of it.
    uint32_t index() const { return m_index; }
    bool isFirst() const { return m_index == m_first; }
    /// "frame 2 of 5"
    std::string name() const;

    /// The frame in work has been decoded under this color model; false when that ends the sequence.
    bool decoded(const std::string& colorModel);
    /// The frame in work cannot be decoded, which ends the sequence; what is to be said of it.
    const std::string& lost(const std::string& why);
    /// The frame in work gave an image.
    void gaveImage() { ++m_images; }
    /// The frame in work gave none, for `why`; what is to be said of it.
    const std::string& gaveNone(const std::string& why);
    /// Goes on to the next frame; false when the last one was in work.
    bool next();

    /// The color model of the last frame that was decoded.
    const std::string& colorModel() const { return m_colorModel; }

    /// When all is done: `lastImage` is the number of the last image. Notes in a part what was found.
    FramesVerdict judge(int lastImage);

private:
    FramesVerdict judgePart(int lastImage);
    FramesVerdict judgeObject() const;
    /// Of frames or fragments behind the declared ones; empty when there are none.
    std::string surplusWarning() const;

    FrameReader& m_frames;
    FramePart& m_part;
    bool m_single;
    uint32_t m_first = 0;
    uint32_t m_end = 0;
    uint32_t m_index = 0;
    uint32_t m_images = 0;
    std::string m_colorModel;
    std::string m_missing;  ///< why a frame gave no image
};
