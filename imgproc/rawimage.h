#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "imgproc/extracteddata.h"
#include "imgproc/framecontext.h"

/// One decoded frame. Samples are appended and counted; postProcess() then moves them to the origin, narrows
/// them, interleaves colour planes and converts to RGB, and keeps what the frame taught about its value range
/// and windows.
///
/// Afterwards data() holds rows from top to bottom without gaps: one byte (8-bit grey), two bytes in host
/// order (16-bit grey) or three bytes R, G, B a pixel. A sample s stands for s * rescaleSlope() +
/// rescaleIntercept().
class CRawImage : public CExtractedData {
public:
    CRawImage(CImageProcess* process, FrameContext context, int kind)
        : CExtractedData(process, context.memory, kind), m_context(std::move(context)) {}
    ~CRawImage() override {
        if (m_ownData != nullptr) m_data = m_ownData;
    }
    CRawImage(const CRawImage&) = delete;
    CRawImage& operator=(const CRawImage&) = delete;

    /// Sizes and allocates the buffer by the frame's context, and takes over its rescale and window values.
    /// False when the buffer cannot be allocated.
    bool init() override;

    /// Completes the frame; 1 without a buffer.
    int postProcess() override;

    /// Packs 16-bit samples that need at most 8 bits into bytes.
    virtual void optimizeBitmap();

    /// Append samples; what does not fit into the buffer is dropped.
    void addSample(unsigned short value);
    void addSamples(unsigned short* samples, unsigned int count);
    /// As addSamples(), for samples that stay as long as the image and may be changed: where they are all
    /// samples of 16 bits that the image has, it works on them in their place.
    void takeSamples(unsigned short* samples, unsigned int count);
    void addByteSamples(unsigned short* samples, unsigned int count);
    void addSamples(unsigned char* samples, unsigned int count);

    /// Subtracts `offset` from every sample, or every sample from `offset` when the image is to be inverted.
    void shiftImageToOrigo(int offset);

    /// Rearranges the planes R...R G...G B...B of `size` / 3 bytes each into RGB RGB ... in place.
    void planarToInterleaved3(char* buffer, int size);

    /// Converts YBR pixels in place by the frame's colour model; nothing for the other kinds.
    int convertColor2RGB();

    /// A frame without meaningful samples: it reports the full range and keeps its bytes.
    void setBlank() { m_blank = true; }
    bool isBlank() const { return m_blank; }

    /// 8 or 16: the width of the samples that were appended. Stays 16 when optimizeBitmap() packed them.
    int sampleWidth() const { return m_sampleWidth; }
    /// Bytes of one pixel: 1, 2, or 3 for colour.
    int bytesPerSample() const { return m_bytesPerSample; }
    /// Bits that the value range needs, after postProcess().
    int bitsUsed() const { return m_bitsUsed; }
    /// What the frame taught; nothing before a successful postProcess().
    const std::optional<FrameFindings>& findings() const { return m_findings; }
    const FrameContext& context() const { return m_context; }
    double rescaleIntercept() const { return m_rescaleIntercept; }
    double rescaleSlope() const { return m_rescaleSlope; }
    double windowCenter() const { return m_windowCenter; }
    double windowWidth() const { return m_windowWidth; }
    uint16_t samplesPerPixel() const { return m_samplesPerPixel; }
    /// "bypixel", "mono", "duplan-vintakt-error" or "unimplemented-error".
    const std::string& layout() const { return m_layout; }

protected:
    FrameContext m_context;
    std::optional<FrameFindings> m_findings;
    size_t m_writePosition = 0;  ///< offset in data() of the next sample
    int m_sampleWidth = 8;
    int m_bytesPerSample = 1;
    double m_rescaleIntercept = 0.0;
    double m_rescaleSlope = 1.0;
    double m_windowCenter = 0.0;
    double m_windowWidth = 0.0;
    bool m_planar = false;
    uint16_t m_samplesPerPixel = 1;
    std::string m_layout;
    int m_bitsUsed = 0;
    bool m_blank = false;

private:
    char* m_ownData = nullptr;  ///< the memory's buffer, while data() is somebody else's

    size_t roomLeft() const { return m_size - m_writePosition; }
    void addBlankSamples(const void* bytes, size_t byteCount, unsigned int count, uint16_t largest);
    void findReferenceWindows(FrameFindings& findings) const;
    void chooseWindow();
    void applyValueRange(FrameFindings& findings);
};
