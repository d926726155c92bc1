#pragma once

/// Told about the progress of a conversion, on the thread that runs it.
class IImageProcessProgress {
public:
    virtual ~IImageProcessProgress() = default;
    virtual void onImageConverted() = 0;
    /// A frame's files have been written.
    virtual void onFrameWritten() = 0;
};
