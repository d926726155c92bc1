#include "imgproc/referencevalues.h"

#include <dcmtk/dcmdata/dcvrsl.h>

#include <array>
#include <memory>
#include <string>
#include <utility>

#include "hsutils/Utils.h"
#include "imgproc/histogram.h"
#include "imgproc/privatekeys.h"
#include "privateblock/PBItem.h"

namespace {

/// Decimal numbers with a backslash between them.
class NumberList {
public:
    void append(int number) {
        if (!m_text.empty()) m_text += '\\';
        m_text += std::to_string(number);
    }
    void append(const std::deque<int32_t>& numbers) {
        for (int32_t number : numbers)
            append(number);
    }
    const char* text() const { return m_text.c_str(); }

private:
    std::string m_text;
};

void putValueList(PBItem& block, unsigned short key, const std::deque<int32_t>& values) {
    DcmTag tag;
    if (values.empty() || block.getTag(key, tag).bad()) return;
    tag.setVR(DcmVR(EVR_SL));
    auto element = std::make_unique<DcmSignedLong>(tag);
    const std::vector<Sint32> numbers(values.begin(), values.end());
    if (element->putSint32Array(numbers.data(), numbers.size()).bad()) return;
    if (block.insertPB(element.get(), true).good()) element.release();
}

/// Texts of widths and centers.
using WindowTexts = std::pair<NumberList, NumberList>;

/// The mean window of each level over all frames.
WindowTexts meanWindows(const std::deque<int32_t>& widths, const std::deque<int32_t>& centers, int frames) {
    constexpr size_t kLevels = CHistogram::kLevelCount;
    std::array<double, kLevels> low{};
    std::array<double, kLevels> high{};
    for (size_t i = 0; i < widths.size(); ++i) {
        const int64_t half = widths[i] / 2;
        low[i % kLevels] += static_cast<double>(centers[i] - half);
        high[i % kLevels] += static_cast<double>(centers[i] + half);
    }
    WindowTexts texts;
    for (size_t k = 0; k < kLevels; ++k) {
        low[k] /= frames;
        high[k] /= frames;
        texts.first.append(truncated(high[k] - low[k]));
        texts.second.append(truncated((low[k] + high[k]) * 0.5));
    }
    return texts;
}

}  // namespace

void ReferenceValues::store(DcmItem& dataset, uint16_t numberOfFrames, int images) const {
    PBItem block(dataset);
    putValueList(block, privatekeys::kMinimumValues, m_minima);
    putValueList(block, privatekeys::kMaximumValues, m_maxima);
    if (!m_actualBits.empty())
        block.putAndInsertPBUint16Array(privatekeys::kActualBits, m_actualBits.data(), m_actualBits.size());

    WindowTexts windows;
    if (numberOfFrames > 1 && m_widths.b.size() == size_t{numberOfFrames} * CHistogram::kLevelCount &&
        m_widths.b.size() == m_centers.b.size()) {
        windows = meanWindows(m_widths.b, m_centers.b, numberOfFrames);
    } else {
        windows.first.append(m_widths.a);
        windows.first.append(m_widths.b);
        windows.second.append(m_centers.a);
        windows.second.append(m_centers.b);
    }
    if (!m_widths.b.empty()) block.putAndInsertPBString(privatekeys::kWindowWidths, windows.first.text());
    if (!m_centers.b.empty()) block.putAndInsertPBString(privatekeys::kWindowCenters, windows.second.text());

    NumberList frames;
    for (int frame = 1; frame <= images; ++frame)
        frames.append(frame);
    block.putAndInsertPBString(privatekeys::kFrameNumbers, frames.text());
}
