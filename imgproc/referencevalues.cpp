#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcvrsl.h>

#include <array>

#include "imgproc/imageprocess.h"
#include "imgproc/truncate.h"
#include "privateblock/PBItem.h"

// What the frames taught goes into the private block: value ranges, bits, windows, overlays.

namespace {

constexpr unsigned short keyWindowWidths = 0x11;
constexpr unsigned short keyWindowCenters = 0x12;
constexpr unsigned short keyMinimumValues = 0x13;
constexpr unsigned short keyMaximumValues = 0x14;
constexpr unsigned short keyFrameNumbers = 0x1D;
constexpr unsigned short keyActualBits = 0x1E;
constexpr unsigned short keyOverlays = 0x71;
constexpr unsigned short keyOverlayName = 0x72;
constexpr unsigned short keyOverlayBitmap = 0x73;

/// Decimal numbers with a backslash between them.
class NumberList {
public:
    void append(int number) {
        if (!m_text.empty()) m_text += '\\';
        m_text += std::to_string(number);
    }
    void append(const std::vector<int32_t>& numbers) {
        for (int32_t number : numbers)
            append(number);
    }
    const char* text() const { return m_text.c_str(); }

private:
    std::string m_text;
};

void putValueList(PBItem& block, unsigned short key, const std::vector<int32_t>& values) {
    DcmTag tag;
    if (values.empty() || block.getTag(key, tag).bad()) return;
    tag.setVR(DcmVR(EVR_SL));
    auto element = std::make_unique<DcmSignedLong>(tag);
    const std::vector<Sint32> numbers(values.begin(), values.end());
    if (element->putSint32Array(numbers.data(), numbers.size()).bad()) return;
    if (block.insertPB(element.get(), true).good()) element.release();
}

}  // namespace

void CImageProcess::setPBPrefWindowWidth(int familyA, int familyB) {
    m_preferredWidths.familyA.push_back(familyA);
    m_preferredWidths.familyB.push_back(familyB);
}

void CImageProcess::setPBPrefWindowCenter(int familyA, int familyB) {
    m_preferredCenters.familyA.push_back(familyA);
    m_preferredCenters.familyB.push_back(familyB);
}

void CImageProcess::addReferenceValues() {
    if (m_imagesStarted == 0) return;
    PBItem block(*m_dataset);
    putValueList(block, keyMinimumValues, m_minimumList);
    putValueList(block, keyMaximumValues, m_maximumList);
    if (!m_actualBitsList.empty())
        block.putAndInsertPBUint16Array(keyActualBits, m_actualBitsList.data(), m_actualBitsList.size());
    m_dataset->putAndInsertUint16(DCM_PixelRepresentation, m_pixelRepresentation);
    putWindows();

    NumberList frames;
    for (int frame = 1; frame <= m_imagesStarted; ++frame)
        frames.append(frame);
    block.putAndInsertPBString(keyFrameNumbers, frames.text());
}

void CImageProcess::putWindows() {
    const auto& widths = m_preferredWidths.familyB;
    const auto& centers = m_preferredCenters.familyB;
    constexpr size_t levels = CHistogram::levelCount;
    NumberList widthList;
    NumberList centerList;
    const bool oneForAllFrames =
        m_numberOfFrames > 1 && widths.size() == m_numberOfFrames * levels && widths.size() == centers.size();
    if (oneForAllFrames) {
        // The mean window of each level.
        std::array<double, levels> low{};
        std::array<double, levels> high{};
        for (size_t i = 0; i < widths.size(); ++i) {
            const int64_t half = widths[i] / 2;
            low[i % levels] += static_cast<double>(centers[i] - half);
            high[i % levels] += static_cast<double>(centers[i] + half);
        }
        for (size_t k = 0; k < levels; ++k) {
            low[k] /= m_numberOfFrames;
            high[k] /= m_numberOfFrames;
            widthList.append(truncated(high[k] - low[k]));
            centerList.append(truncated((low[k] + high[k]) * 0.5));
        }
    } else {
        widthList.append(m_preferredWidths.familyA);
        widthList.append(widths);
        centerList.append(m_preferredCenters.familyA);
        centerList.append(centers);
    }
    PBItem block(*m_dataset);
    if (!widths.empty()) block.putAndInsertPBString(keyWindowWidths, widthList.text());
    if (!centers.empty()) block.putAndInsertPBString(keyWindowCenters, centerList.text());
}

bool CImageProcess::storeOverlays() {
    PBItem block(*m_dataset);
    for (int slot = 0; slot < m_overlays.count(); ++slot) {
        const COverlay* overlay = m_overlays.at(slot);
        DcmItem* item = nullptr;
        if (block.findOrCreatePBSequenceItem(keyOverlays, item, slot).bad() || item == nullptr) return false;
        PBItem overlayBlock(*item);
        const auto& bitmap = overlay->data();
        if (overlayBlock.putAndInsertPBString(keyOverlayName, "NONE").bad() ||
            overlayBlock.putAndInsertPBUint8Array(keyOverlayBitmap, bitmap.data(), bitmap.size()).bad())
            return false;
    }
    return true;
}

bool CImageProcess::finalizeProcess() {
    if (m_imagesStarted > 0) addReferenceValues();
    for (int slot = 0; slot < m_overlays.count(); ++slot)
        m_overlays.at(slot)->finalizeData();
    if (storeOverlays()) return true;
    reportFailure("an overlay cannot be stored in the private block");
    return false;
}
