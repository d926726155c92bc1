#include "keltlegacy/decoder.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "keltlegacy/bitreader.h"
#include "keltlegacy/classdecoder.h"
#include "keltlegacy/compression.h"
#include "keltlegacy/golomb.h"
#include "keltlegacy/levels.h"
#include "keltlegacy/wavelet.h"

namespace keltlegacy {
namespace {

/// The coefficients of all components while the diagonals of the stream are read.
template <class T>
class StreamDecoder {
public:
    StreamDecoder(Picture& picture, int components) : m_picture(picture) {
        auto w = static_cast<size_t>(picture.width);
        auto h = static_cast<size_t>(picture.height);
        std::vector<size_t> counts;
        for (int level = 0; level < picture.levels; ++level, w = (w + 1) / 2, h = (h + 1) / 2)
            counts.push_back(detailCount(w, h));
        counts.push_back(w * h);
        m_components.resize(static_cast<size_t>(components));
        for (auto& classes : m_components)
            for (const size_t count : counts)
                classes.emplace_back(count);
    }

    /// Reads as far as the payload goes; false when it is damaged.
    bool read(BitReader& reader) {
        const int top = static_cast<int>(reader.read(8));
        if (reader.ended()) return true;  // a prefix: the picture is as good as what was read
        m_picture.topPlane = top;
        if (top > kHighestPlane) return false;
        for (int diagonal = top + m_picture.levels; diagonal >= 0; --diagonal) {
            const PlaneEnd end = readDiagonal(diagonal, reader);
            if (end != PlaneEnd::Whole) return end == PlaneEnd::CutOff;
        }
        m_picture.complete = true;
        return true;
    }

    /// The samples of one component; its coefficients are given up.
    std::vector<T> takePlane(size_t component) {
        LevelClasses<T> classes;
        for (ClassDecoder& decoder : m_components[component]) {
            const std::vector<int32_t> values = std::exchange(decoder, ClassDecoder(0)).takeCoefficients();
            std::vector<T>& coefficients = classes.emplace_back(values.size());
            std::transform(values.begin(), values.end(), coefficients.begin(),
                           [](int32_t value) { return static_cast<T>(value); });
        }
        const Filter4_2<T> filter;
        return Wavelet<T>(filter).untransform(std::move(classes), m_picture.width, m_picture.height);
    }

private:
    static constexpr int kHighestPlane = std::is_same_v<T, int16_t> ? 14 : 30;

    PlaneEnd readDiagonal(int diagonal, BitReader& reader) {
        for (size_t component = 0; component < m_components.size(); ++component)
            for (int j = 0; j <= m_picture.levels; ++j) {
                const int plane = diagonal - j;
                if (plane < 0 || plane > m_picture.topPlane) continue;
                m_picture.planes.push_back({static_cast<int>(component), j, plane, -1, 0, 0});
                const PlaneEnd end = m_components[component][static_cast<size_t>(j)].readPlane(
                    plane, reader, m_picture.planes.back());
                if (end != PlaneEnd::Whole) return end;
            }
        return PlaneEnd::Whole;
    }

    Picture& m_picture;
    std::vector<std::vector<ClassDecoder>> m_components;
};

uint8_t clampedByte(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

/// Each decodes one pixel format; false for a damaged stream.
bool decodeBytes(Picture& picture, BitReader& reader) {
    StreamDecoder<int16_t> decoder(picture, 1);
    if (!decoder.read(reader)) return false;
    const std::vector<int16_t> plane = decoder.takePlane(0);
    picture.samples.resize(plane.size());
    std::transform(plane.begin(), plane.end(), picture.samples.begin(), clampedByte);
    return true;
}

bool decodeWords(Picture& picture, BitReader& reader) {
    StreamDecoder<int32_t> decoder(picture, 1);
    if (!decoder.read(reader)) return false;
    const std::vector<int32_t> plane = decoder.takePlane(0);
    picture.samples.resize(plane.size() * 2);
    for (size_t i = 0; i < plane.size(); ++i) {
        const auto sample = static_cast<uint16_t>(std::clamp(plane[i], 0, 65535));
        std::memcpy(picture.samples.data() + 2 * i, &sample, sizeof sample);
    }
    return true;
}

bool decodeColours(Picture& picture, BitReader& reader) {
    StreamDecoder<int16_t> decoder(picture, 3);
    if (!decoder.read(reader)) return false;
    const std::vector<int16_t> y = decoder.takePlane(0);
    const std::vector<int16_t> u = decoder.takePlane(1);
    const std::vector<int16_t> v = decoder.takePlane(2);
    picture.samples.resize(y.size() * 3);
    for (size_t i = 0; i < y.size(); ++i) {
        const int g = y[i] - ((u[i] + v[i]) >> 2);
        picture.samples[3 * i] = clampedByte(u[i] + g);
        picture.samples[3 * i + 1] = clampedByte(g);
        picture.samples[3 * i + 2] = clampedByte(v[i] + g);
    }
    return true;
}

DecodeStatus readHeader(std::span<const uint8_t> payload, Picture& picture, uint64_t pixelLimit) {
    if (payload.size() < kHeaderSize || std::memcmp(payload.data(), kMagic, sizeof kMagic) != 0)
        return DecodeStatus::NotLegacy;
    picture.bytesPerPixel = payload[4];
    picture.bitsUsed = payload[5];
    picture.width = payload[6] | payload[7] << 8;
    picture.height = payload[8] | payload[9] << 8;
    picture.levels = levelCount(picture.width, picture.height);
    if (picture.bytesPerPixel < 1 || picture.bytesPerPixel > 3) return DecodeStatus::BadPixelFormat;
    if (picture.width == 0 || picture.height == 0) return DecodeStatus::NoPixels;
    if (uint64_t{payload[6] | payload[7] * 256u} * (payload[8] | payload[9] * 256u) > pixelLimit)
        return DecodeStatus::TooLarge;
    return DecodeStatus::Ok;
}

}  // namespace

const char* describe(DecodeStatus status) {
    switch (status) {
        case DecodeStatus::Ok:
            return "decoded";
        case DecodeStatus::NotLegacy:
            return "no KT10 header";
        case DecodeStatus::BadPixelFormat:
            return "bytes per pixel is not 1, 2 or 3";
        case DecodeStatus::NoPixels:
            return "width or height is 0";
        case DecodeStatus::TooLarge:
            return "more pixels than the limit allows";
        case DecodeStatus::Damaged:
            return "the bit stream is damaged";
    }
    return "unknown status";
}

DecodeStatus decode(std::span<const uint8_t> payload, Picture& picture, uint64_t pixelLimit) {
    picture = Picture();
    const DecodeStatus status = readHeader(payload, picture, pixelLimit);
    if (status != DecodeStatus::Ok) return status;

    BitReader reader(payload.subspan(kHeaderSize));
    const auto decodeSamples = picture.bytesPerPixel == 1   ? decodeBytes
                               : picture.bytesPerPixel == 2 ? decodeWords
                                                            : decodeColours;
    if (!decodeSamples(picture, reader)) return DecodeStatus::Damaged;
    picture.bitsRead = reader.position();
    return DecodeStatus::Ok;
}

}  // namespace keltlegacy
