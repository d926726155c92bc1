#include "imgproc/framesequence.h"

#include "hsutils/Utils.h"
#include "imgproc/framereader.h"
#include "imgproc/pixelkinds.h"

FrameSequence::FrameSequence(FrameReader& frames, FramePart& part, int specificFrame)
    : m_frames(frames), m_part(part), m_single(specificFrame >= 1) {
    if (m_single)
        m_first = static_cast<uint32_t>(specificFrame - 1);
    else if (part.isSet())
        m_first = part.first - 1;
    m_end = part.isSet() ? part.last : frames.frameCount();
    m_index = m_first;
}

std::string FrameSequence::whyNotAlone(bool overlaysInSamples) {
    if (!m_part.isSet()) return "";
    std::string cause;
    if (m_part.last > m_frames.frameCount()) cause = "the object has no frame " + std::to_string(m_part.last);
    if (overlaysInSamples) cause = "overlays in the samples are of all frames";
    m_part.firstFragment = m_frames.startOf(m_part.first - 1);
    if (m_frames.compressed() && m_part.firstFragment == 0)
        cause = "nothing tells where frame " + std::to_string(m_part.first) + " begins";
    return cause;
}

std::string FrameSequence::name() const {
    return "frame " + std::to_string(m_index + 1) + " of " + std::to_string(m_frames.frameCount());
}

bool FrameSequence::decoded(const std::string& colorModel) {
    if (m_part.isSet() && !isFirst() && colorModel != m_colorModel) {
        m_missing = name() + " has another color model than the one before it";
        return false;
    }
    m_colorModel = colorModel;
    return true;
}

const std::string& FrameSequence::lost(const std::string& why) {
    return m_missing = printable(name() + " cannot be decoded: " + why);
}

const std::string& FrameSequence::gaveNone(const std::string& why) {
    return m_missing = name() + " " + why + ": no image";
}

bool FrameSequence::next() {
    if (m_single || m_index + 1 >= m_end) return false;
    ++m_index;
    return true;
}

FramesVerdict FrameSequence::judge(int lastImage) {
    m_part.colorModel = m_colorModel;
    return m_part.isSet() ? judgePart(lastImage) : judgeObject();
}

FramesVerdict FrameSequence::judgePart(int lastImage) {
    m_part.endFragment = m_frames.startOf(m_part.last);
    std::string missing = m_missing;
    if (missing.empty() && lastImage != static_cast<int>(m_part.last))
        missing = "not every frame gives one image";
    if (missing.empty() && !photometricKindOf(m_part.colorModel))
        missing = "the color model \"" + printable(m_part.colorModel) + "\" is not known";
    if (!missing.empty() || m_images != m_part.count()) return {true, missing, ""};
    return {false, "", m_part.last == m_frames.frameCount() ? surplusWarning() : ""};
}

FramesVerdict FrameSequence::judgeObject() const {
    if (m_images == 0) return {true, m_missing, ""};
    if (m_single) return {};
    if (m_images < m_frames.frameCount())
        return {false, "",
                std::to_string(m_images) + " of " + std::to_string(m_frames.frameCount()) +
                    " frames were converted: " + m_missing};
    return {false, "", surplusWarning()};
}

std::string FrameSequence::surplusWarning() const {
    const std::string surplus = m_frames.surplus();
    if (surplus.empty()) return "";
    return "the pixel data hold " + surplus + " more than the " + std::to_string(m_frames.frameCount()) +
           " frames that the object declares";
}
