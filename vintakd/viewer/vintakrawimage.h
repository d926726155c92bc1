#pragma once

#include <cstdio>

#include "imgproc/rawimage.h"
#include "vintakd/viewer/framepixels.h"

class CVintakProcess;

/// One frame on its way into the viewer's files. Belongs to a CVintakProcess.
class CVintakRawImage : public CRawImage {
public:
    /// `frame` is the frame's number, counted from 1.
    CVintakRawImage(CVintakProcess* process, FrameContext context, int frame);

    CVintakProcess* viewerProcess() const;

    /// The frame for those who write its files; valid while this image lives.
    FramePixels pixels() const;

    /// As the base; then takes the rescale and window values that belong to this frame.
    bool init() override;

    /// As the base, when the process asks for optimised frames.
    void optimizeBitmap() override;

    /// The frame's line of the descriptor, with its line feed.
    std::string describedLine() const;

    /// Writes it; always 1.
    int printDesc(std::FILE* file) const;

    /// Writes the samples as they are: columns x rows pixels of bytesPerSample() bytes, no header. False
    /// unless all bytes were taken.
    bool writeRawFile(std::FILE* file);

    /// Codes the frame once and writes the stream elements that have a file: `p` the preview, `t` the first
    /// part, `f` the rest. False when the frame cannot be coded, which is logged, or not all bytes were
    /// taken.
    bool createAndWriteCompressedStreamElements(std::FILE* f, std::FILE* t, std::FILE* p) const;

    /// Renders the thumbnail and writes its pixels to `thumbRaw` (may be null) and its compressed form to
    /// `thumbCw1`. False when it cannot be rendered, which is reported, or not all bytes were taken.
    bool createAndWriteThumbnail(std::FILE* thumbRaw, std::FILE* thumbCw1);
};
