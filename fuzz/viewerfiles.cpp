#include "fuzz/viewerfiles.h"

#include <cstring>
#include <sstream>
#include <utility>

#include "fuzz/require.h"
#include "kelt4/decoder.h"
#include "keltlegacy/decoder.h"
#include "vintakd/viewer/vintakprocess.h"

namespace {

constexpr size_t kElementHeader = 24;
constexpr size_t kMostOfPreview = 4096;
using Bytes = std::vector<uint8_t>;

/// What the descriptor's line says about a frame; without a descriptor the sides are not known.
struct FrameLine {
    int number = 0;
    uint64_t columns = 0;
    uint64_t rows = 0;
    std::string layout;
    int width = 0;
    int bits = 0;
};

class FrameFiles {
public:
    FrameFiles(const ObjectRequest& request, const ObjectRoad& road, const FrameLine& line)
        : m_request(request), m_road(road), m_line(line) {}

    void check() {
        const bool cached = !m_request.noCached;
        const bool raw = cached && !wants(writemask::kNoRaw);
        if (raw) checkRaw();
        if (wants(writemask::kPreview)) checkPreview();
        if (cached && wants(writemask::kStreamElements)) checkStream();
        if (!wants(writemask::kNoThumbnails)) checkThumbnail(raw);
    }

private:
    bool wants(uint32_t bit) const { return (m_request.writeMask & bit) != 0; }
    std::string name(const char* suffix) const {
        return "object.dcm_" + std::to_string(m_line.number) + suffix;
    }

    void checkRaw() {
        m_raw = m_road.cache().read(name(".raw"));
        if (m_line.columns == 0) return;
        const uint64_t pixels = m_line.columns * m_line.rows;
        const uint64_t bytesPerPixel = m_raw.size() / pixels;
        REQUIRE(m_raw.size() % pixels == 0 && bytesPerPixel >= 1 && bytesPerPixel <= 3);
        REQUIRE((bytesPerPixel == 3) == (m_line.layout == "bypixel"), "%s", m_line.layout.c_str());
        REQUIRE(bytesPerPixel != 2 || m_line.width == (m_line.bits > 8 ? 16 : 8));
        // Bytes in 16-bit cells, which a High Bit beyond Bits Allocated leads to, are described as bytes.
        if (m_line.bits > 15 || m_line.width != 16) return;
        for (size_t i = 0; i < m_raw.size(); i += 2)
            REQUIRE((m_raw[i] | m_raw[i + 1] << 8) < 1 << m_line.bits);
    }

    void checkPreview() {
        m_preview = m_road.output().read(name(".p.qi4"));
        REQUIRE(m_preview.size() > kElementHeader && m_preview.size() <= kElementHeader + kMostOfPreview);
        REQUIRE(std::memcmp(m_preview.data(), "QXID\x01\0\x18\0", 8) == 0);
    }

    void checkStream() {
        Bytes stream = m_road.cache().read(name(".t.qi4"));
        const Bytes rest = m_road.cache().read(name(".f.qi4"));
        REQUIRE(stream.size() > kElementHeader && std::memcmp(stream.data(), "QXID\x01\0\x18\0", 8) == 0);
        REQUIRE(m_preview.empty() ||
                std::memcmp(stream.data(), m_preview.data(), std::min(stream.size(), m_preview.size())) == 0);
        stream.erase(stream.begin(), stream.begin() + kElementHeader);
        stream.insert(stream.end(), rest.begin(), rest.end());
        REQUIRE(m_preview.empty() ||
                m_preview.size() == kElementHeader + std::min(stream.size(), kMostOfPreview));
        const dvq::kelt4::DecodedFrame frame = dvq::kelt4::decode(stream);
        REQUIRE(frame.info.status == dvq::kelt4::DecodeStatus::kComplete, "%d",
                static_cast<int>(frame.info.status));
        REQUIRE(m_raw.empty() || frame.pixels == m_raw);
    }

    void checkThumbnail(bool raw) {
        const Bytes payload = m_road.output().read(name(".128x128t.cw1"));
        REQUIRE(payload.size() >= 10);
        // Without a descriptor the frame's sides are not known.
        const auto [width, height] = thumbnailSides();
        if (width == 0) return;
        keltlegacy::Picture picture;
        REQUIRE(keltlegacy::decode(payload, picture) == keltlegacy::DecodeStatus::Ok);
        const auto coded =
            std::pair(static_cast<uint64_t>(picture.width), static_cast<uint64_t>(picture.height));
        REQUIRE(coded == std::pair(width, height), "%d x %d", picture.width, picture.height);
        if (!raw) return;
        const Bytes pixels = m_road.cache().read(name(".128x128t.raw"));
        REQUIRE(pixels.size() == picture.samples.size() &&
                payload.size() <= std::max<size_t>(10, pixels.size()));
        REQUIRE(!picture.complete || picture.samples == pixels);
    }

    /// The frame fitted into 128 x 128, or as it is where a side would vanish; doubled to at least 32 a side
    /// as long as the payload's header can hold them.
    std::pair<uint64_t, uint64_t> thumbnailSides() const {
        constexpr uint64_t kTarget = 128, kSmallest = 32, kLargest = 0xFFFF;
        if (m_line.columns == 0) return {0, 0};
        uint64_t w = kTarget, h = kTarget;
        if (m_line.columns > m_line.rows)
            h = kTarget * m_line.rows / m_line.columns;
        else
            w = kTarget * m_line.columns / m_line.rows;
        if (w == 0 || h == 0) {
            w = m_line.columns;
            h = m_line.rows;
        }
        for (; std::min(w, h) < kSmallest && 2 * std::max(w, h) <= kLargest; w *= 2)
            h *= 2;
        return {w, h};
    }

    const ObjectRequest& m_request;
    const ObjectRoad& m_road;
    const FrameLine& m_line;
    Bytes m_raw, m_preview;
};

/// Requires sixteen fields, numbers where numbers belong.
FrameLine parsed(const std::string& text) {
    std::vector<std::string> fields(1);
    for (const char c : text)
        if (c == ' ')
            fields.emplace_back();
        else
            fields.back() += c;
    REQUIRE(fields.size() >= 16, "%s", text.c_str());
    FrameLine line;
    std::istringstream in(text);
    double numbers[6];
    in >> line.number >> line.columns >> line.rows >> line.layout >> line.width >> line.bits;
    for (double& number : numbers) {
        std::string field;
        in >> field;
        char* end = nullptr;
        number = std::strtod(field.c_str(), &end);
        REQUIRE(!field.empty() && *end == '\0', "%s", text.c_str());
    }
    REQUIRE(in && line.columns > 0 && line.rows > 0, "%s", text.c_str());
    REQUIRE(line.width == 8 || line.width == 16, "%s", text.c_str());
    REQUIRE(line.bits >= 0 && line.bits <= line.width, "%s", text.c_str());
    return line;
}

}  // namespace

void requireViewerFiles(const ObjectRequest& request, const ObjectRoad& road) {
    if (request.specificFrame != 0) {
        // Without pixel data there is no such frame, and nothing is written of it.
        FrameLine line;
        line.number = request.specificFrame;
        const std::string start = "object.dcm_";
        const auto hasFrame = [&start](const MemoryFolder& folder) {
            const auto sizes = folder.sizes();
            const auto found = sizes.lower_bound(start);
            return found != sizes.end() && found->first.starts_with(start);
        };
        const bool any = hasFrame(road.output()) || hasFrame(road.cache());
        if (any && request.specificFrame > 0) FrameFiles(request, road, line).check();
        return;
    }
    const Bytes descriptor = road.output().read("object.dcm.desc");
    REQUIRE(request.noCached || road.output().has("object.dcm.pdcm"));
    std::istringstream lines(std::string(descriptor.begin(), descriptor.end()));
    int number = 0;
    for (std::string text; std::getline(lines, text);) {
        const FrameLine line = parsed(text);
        REQUIRE(line.number == ++number, "%s", text.c_str());
        FrameFiles(request, road, line).check();
    }
}
