#include "imgproc/rawimage.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "hsutils/Utils.h"
#include "imgproc/colorconversion.h"
#include "imgproc/objectlimits.h"
#include "imgproc/planar.h"

namespace {

constexpr double kHistogramBase = 1.1;
constexpr double kHistogramExponent = 1.2;

const char* layoutOf(PixelKind kind) {
    switch (kind) {
        case PixelKind::ColorInterleaved:
        case PixelKind::ColorPlanar:
            return "bypixel";
        case PixelKind::Mono8:
        case PixelKind::Mono12:
        case PixelKind::Mono16:
            return "mono";
        case PixelKind::Reference:
            return "duplan-vintakt-error";
    }
    return "unimplemented-error";
}

int bytesPerSampleOf(PixelKind kind) {
    if (kind == PixelKind::Mono8) return 1;
    return kind == PixelKind::Mono12 || kind == PixelKind::Mono16 ? 2 : 3;
}

template <typename Sample>
void shiftSamples(char* data, size_t count, int offset, bool invert) {
    auto* samples = reinterpret_cast<Sample*>(data);
    const auto origin = static_cast<Sample>(offset);
    if (invert)
        for (size_t i = 0; i < count; ++i)
            samples[i] = static_cast<Sample>(origin - samples[i]);
    else
        for (size_t i = 0; i < count; ++i)
            samples[i] = static_cast<Sample>(samples[i] - origin);
}

}  // namespace

bool CRawImage::init() {
    const PixelKind kind = m_context.pixelKind;
    m_layout = layoutOf(kind);
    m_planar = kind == PixelKind::ColorPlanar;
    m_bytesPerSample = bytesPerSampleOf(kind);

    const uint64_t pixels = uint64_t{m_context.rows} * m_context.columns;
    const uint64_t bytes = pixels * static_cast<unsigned int>(m_bytesPerSample);
    if (bytes > objectlimits::kFrameBytes) return false;
    if (!m_context.histogram->init(m_bytesPerSample, m_context.isSigned, kHistogramBase, kHistogramExponent,
                                   static_cast<int>(pixels)))
        return false;
    m_size = static_cast<unsigned int>(bytes);
    m_data = m_memory->allocate(m_size, m_kind);
    if (m_data == nullptr) return false;
    m_writePosition = 0;

    m_rescaleIntercept = m_context.rescaleIntercept;
    m_rescaleSlope = m_context.rescaleSlope;
    m_windowCenter = m_context.windowCenter;
    m_windowWidth = m_context.windowWidth;
    m_samplesPerPixel = m_context.samplesPerPixel;
    return true;
}

void CRawImage::addSample(unsigned short value) {
    m_sampleWidth = 8;
    if (roomLeft() == 0) return;
    m_data[m_writePosition++] = static_cast<char>(value);
    m_context.histogram->count(value);
}

void CRawImage::addSamples(unsigned short* samples, unsigned int count) {
    if (m_context.pixelKind == PixelKind::Mono8) {
        addByteSamples(samples, count);
        return;
    }
    m_sampleWidth = 16;
    if (m_blank) {
        addBlankSamples(samples, size_t{2} * count, count, 65535);
        return;
    }
    const size_t stored = std::min<size_t>(count, roomLeft() / 2);
    std::memcpy(m_data + m_writePosition, samples, 2 * stored);
    m_writePosition += 2 * stored;
    m_context.histogram->countWords(samples, stored);
}

void CRawImage::takeSamples(unsigned short* samples, unsigned int count) {
    const bool words = m_context.pixelKind != PixelKind::Mono8 && !m_blank;
    if (!words || m_writePosition != 0 || m_ownData != nullptr || static_cast<size_t>(count) * 2 < m_size) {
        addSamples(samples, count);
        return;
    }
    m_sampleWidth = 16;
    m_ownData = std::exchange(m_data, reinterpret_cast<char*>(samples));
    m_writePosition = m_size;
    m_context.histogram->countWords(samples, m_size / 2);
}

void CRawImage::addByteSamples(unsigned short* samples, unsigned int count) {
    m_sampleWidth = 8;
    if (m_blank) {
        addBlankSamples(samples, count, count, 255);
        return;
    }
    const size_t stored = std::min<size_t>(count, roomLeft());
    auto* bytes = reinterpret_cast<unsigned char*>(m_data + m_writePosition);
    for (size_t i = 0; i < stored; ++i)
        bytes[i] = static_cast<unsigned char>(samples[i]);
    m_writePosition += stored;
    m_context.histogram->countBytes(bytes, stored);
}

void CRawImage::addSamples(unsigned char* samples, unsigned int count) {
    m_sampleWidth = 8;
    const size_t stored = std::min<size_t>(count, roomLeft());
    std::memcpy(m_data + m_writePosition, samples, stored);
    m_writePosition += stored;
    m_context.histogram->countBytes(samples, stored);
}

void CRawImage::addBlankSamples(const void* bytes, size_t byteCount, unsigned int count, uint16_t largest) {
    const size_t stored = std::min(byteCount, roomLeft());
    std::memcpy(m_data + m_writePosition, bytes, stored);
    m_writePosition += stored;
    if (count == 0) return;
    m_context.histogram->count(0, count - 1);
    m_context.histogram->count(largest, 1);
}

int CRawImage::postProcess() {
    if (m_data == nullptr) return 1;
    // What no sample was stored in holds zero, not what an earlier frame left there.
    std::memset(m_data + m_writePosition, 0, roomLeft());
    CHistogram& histogram = *m_context.histogram;
    histogram.analyze(0);
    const int64_t range = int64_t{histogram.maximum()} - histogram.minimum();
    while (m_bitsUsed < 16 && int64_t{1} << m_bitsUsed <= range)
        ++m_bitsUsed;
    FrameFindings findings;
    findReferenceWindows(findings);
    chooseWindow();
    applyValueRange(findings);
    m_findings = findings;
    optimizeBitmap();
    if (m_planar) {
        planarToInterleaved3(m_data, static_cast<int>(m_size));
        m_planar = false;
    }
    convertColor2RGB();
    return 0;
}

void CRawImage::findReferenceWindows(FrameFindings& findings) const {
    const CHistogram& histogram = *m_context.histogram;
    const double slope = m_rescaleSlope;
    const double intercept = m_rescaleIntercept;
    for (int k = 0; k < CHistogram::kLevelCount; ++k) {
        findings.windowWidths[k] = {truncated(histogram.widthsA()[k] * slope),
                                    truncated(histogram.widthsB()[k] * slope)};
        findings.windowCenters[k] = {truncated(histogram.centersA()[k] * slope + intercept),
                                     truncated(histogram.centersB()[k] * slope + intercept)};
    }
}

void CRawImage::chooseWindow() {
    const bool widthValid = m_windowWidth > 0 && m_windowWidth <= 65535;
    const bool centerValid = m_windowCenter >= -65535 && m_windowCenter <= 65535;
    if (widthValid && centerValid) return;

    const CHistogram& histogram = *m_context.histogram;
    const std::string& modality = m_context.modality;
    int width = histogram.widthsB()[1];
    int center = histogram.centersB()[1];
    if (modality == "CR" || modality == "DR" || modality == "DX" || modality == "XA") {
        width = histogram.widthsB()[5];
        center = histogram.centersB()[5];
    } else if (modality == "MG") {
        width = histogram.widthsA()[3];
        center = histogram.centersA()[3];
    }
    m_windowCenter = center * m_rescaleSlope + m_rescaleIntercept;
    m_windowWidth = width * m_rescaleSlope;
}

void CRawImage::applyValueRange(FrameFindings& findings) {
    const bool invert = m_context.invert;
    int low = m_context.histogram->minimum();
    int high = m_context.histogram->maximum();
    if (invert) std::swap(low, high);
    findings.minimum = low;
    findings.maximum = high;
    findings.bitsUsed = m_bitsUsed;
    m_rescaleIntercept += low * m_rescaleSlope;
    if (invert) m_rescaleSlope = -m_rescaleSlope;
    shiftImageToOrigo(low);
}

void CRawImage::shiftImageToOrigo(int offset) {
    const bool invert = m_context.invert;
    if (offset == 0 && !invert) return;
    if (m_sampleWidth == 8)
        shiftSamples<uint8_t>(m_data, m_size, offset, invert);
    else
        shiftSamples<uint16_t>(m_data, m_size / 2, offset, invert);
}

void CRawImage::optimizeBitmap() {
    if (m_sampleWidth != 16 || m_bitsUsed > 8) return;
    const size_t count = m_size / 2;
    const auto* words = reinterpret_cast<const unsigned char*>(m_data);
    for (size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, words + 2 * i, sizeof sample);
        m_data[i] = static_cast<char>(sample);
    }
    if (m_ownData == nullptr)
        m_data = m_memory->chunk(m_data, m_size, static_cast<unsigned int>(count), m_kind);
    m_bytesPerSample = 1;
    m_samplesPerPixel = 1;
    m_size = static_cast<unsigned int>(count);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): one of the steps of an image
void CRawImage::planarToInterleaved3(char* buffer, int size) {
    if (buffer != nullptr && size >= 3) interleavePlanes(buffer, static_cast<size_t>(size));
}

int CRawImage::convertColor2RGB() {
    if (m_samplesPerPixel >= 3)
        convertToRgb(m_context.photometricKind, reinterpret_cast<unsigned char*>(m_data), m_size,
                     m_samplesPerPixel);
    return 0;
}
