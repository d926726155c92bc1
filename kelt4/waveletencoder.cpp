#include "kelt4/waveletencoder.h"

#include <algorithm>
#include <bit>
#include <type_traits>

#include "kelt4/bitchunkencoder.h"

namespace dvq::kelt4 {

namespace {

template <class V, int Planes>
using PerChunk = std::array<std::array<std::array<V, Planes>, kMaxClasses>, kMaxComponents>;

/// The next planes to emit of one component and class; below 0 when there is none.
struct Emission {
    int significance = -1;
    int refinement = -1;
};

/// Position in the lattice: trailing zero bits of a coordinate, limited to the number of levels.
int levelOf(int coordinate, int levels) {
    return coordinate == 0 ? levels : std::min(std::countr_zero(static_cast<unsigned>(coordinate)), levels);
}

}  // namespace

template <class T, class Filter>
struct CWaveletEncoder<T, Filter>::WorkingBlock {
    PerChunk<CBitChunkEncoder, kPlanes> encoders;
    PerChunk<uint64_t, kPlanes> significant{};
    PerChunk<CBitChunkWriter, kPlanes> refinements;
    std::array<std::array<Emission, kMaxClasses>, kMaxComponents> emission;
};

template <class T, class Filter>
CWaveletEncoder<T, Filter>::CWaveletEncoder(std::unique_ptr<CoefficientImage<T>> image, int levels)
    : CWavelet<T>(std::move(image)), m_levels(levels), m_block(std::make_unique<WorkingBlock>()) {}

template <class T, class Filter>
CWaveletEncoder<T, Filter>::~CWaveletEncoder() = default;

// ---- loading and transforming

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::transform() {
    transformFromT_interleaved<char>(nullptr);
}

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::transformFrom(const void* src, int bytesPerPixel) {
    switch (bytesPerPixel) {
        case 1:
            transformFromT_interleaved(static_cast<const unsigned char*>(src));
            break;
        case 2:
            transformFromT_interleaved(static_cast<const unsigned short*>(src));
            break;
        case 3:
            throw 4;
        default:
            break;
    }
}

template <class T, class Filter>
template <class S>
void CWaveletEncoder<T, Filter>::transformFromT_interleaved(const S* src) {
    if (m_kill) return;
    const auto& image = *this->m_image;
    const int64_t samples = static_cast<int64_t>(image.width()) * image.height();
    for (int c = 0; c < image.components(); ++c) {
        if (src != nullptr) {
            std::copy_n(src, samples, image.plane(c));
            src += samples;
        }
        transformComponent(c);
        if (m_kill) return;
    }
}

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::transformComponent(int component) {
    const auto& image = *this->m_image;
    const int width = image.width();
    const int height = image.height();
    for (int level = 0; level < m_levels && !m_kill; ++level) {
        const int64_t step = int64_t{1} << level;
        for (int64_t y = 0; y < height; y += step) {
            Filter::lift(image.row(component, static_cast<int>(y)), latticeSide(width, level), step);
        }
        for (int64_t x = 0; x < width; x += step) {
            Filter::lift(image.plane(component) + x, latticeSide(height, level), step * image.stride());
        }
        if (2 * step >= std::max(width, height)) break;
    }
}

template <class T, class Filter>
const void* CWaveletEncoder<T, Filter>::copyAndConvertFrom(const void* src, int bytesPerPixel) {
    switch (bytesPerPixel) {
        case 1:
            return copyInterleaved(static_cast<const unsigned char*>(src));
        case 2:
            return copyInterleaved(static_cast<const unsigned short*>(src));
        case 3:
            return convertColour(static_cast<const unsigned char*>(src));
        default:
            return src;
    }
}

template <class T, class Filter>
template <class S>
const S* CWaveletEncoder<T, Filter>::copyInterleaved(const S* src) {
    const auto& image = *this->m_image;
    const int64_t samples = static_cast<int64_t>(image.width()) * image.height();
    for (int64_t i = 0; i < samples; ++i) {
        for (int c = 0; c < image.components(); ++c)
            image.plane(c)[i] = static_cast<T>(*src++);
    }
    return src;
}

template <class T, class Filter>
const unsigned char* CWaveletEncoder<T, Filter>::convertColour(const unsigned char* src) {
    const auto& image = *this->m_image;
    if (image.components() != 3) return src;
    const int64_t samples = static_cast<int64_t>(image.width()) * image.height();
    for (int64_t i = 0; i < samples; ++i, src += 3) {
        const int red = src[0], green = src[1], blue = src[2];
        image.plane(0)[i] = static_cast<T>((red + 2 * green + blue) >> 2);
        image.plane(1)[i] = static_cast<T>(red - green);
        image.plane(2)[i] = static_cast<T>(blue - green);
    }
    return src;
}

// ---- coding the coefficients into chunks

template <class T, class Filter>
int CWaveletEncoder<T, Filter>::writeWavelet(CBitWriter& out, int rowLimit) {
    if (m_resumeRow == 0 && m_resumeComponent < 1) replaceByCodes();
    if (!codeRows(rowLimit)) return 8;
    const uint64_t estimate = closeChunks();
    out.setSize((estimate + estimate / 20 + 7) >> 3);
    writeStream(out);
    return 0;
}

/// Codes carry the sign in bit 0; the top plane is the highest significance plane that occurs.
template <class T, class Filter>
void CWaveletEncoder<T, Filter>::replaceByCodes() {
    const auto& image = *this->m_image;
    const int64_t samples = static_cast<int64_t>(image.width()) * image.height();
    using Unsigned = std::make_unsigned_t<T>;
    Unsigned all = 0;
    for (int c = 0; c < image.components(); ++c) {
        T* const plane = image.plane(c);
        for (int64_t i = 0; i < samples; ++i) {
            const int64_t value = plane[i];
            plane[i] = static_cast<T>(value >= 0 ? 2 * value : -2 * value + 1);
            all = static_cast<Unsigned>(all | static_cast<Unsigned>(plane[i]));
        }
    }
    m_topPlane = std::max(0, static_cast<int>(std::bit_width(all)) - 2);
}

template <class T, class Filter>
bool CWaveletEncoder<T, Filter>::codeRows(int rowLimit) {
    const auto& image = *this->m_image;
    for (int c = m_resumeComponent; c < image.components(); ++c) {
        for (int y = m_resumeRow; y < image.height(); ++y) {
            codeRow(c, y);
            if (m_stop.exchange(false) || (rowLimit < 0 && -static_cast<int64_t>(rowLimit) == y)) {
                m_resumeRow = y + 1;
                m_resumeComponent = c;
                return false;
            }
        }
        m_resumeRow = 0;
    }
    return true;
}

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::codeRow(int component, int y) {
    const auto& image = *this->m_image;
    const T* const row = image.row(component, y);
    const int rowLevel = levelOf(y, m_levels);
    for (int j = 0; j <= rowLevel; ++j) {
        const int64_t first = j < rowLevel ? int64_t{1} << j : 0;
        const int64_t step = j < rowLevel ? int64_t{2} << j : int64_t{1} << j;
        for (int64_t x = first; x < image.width(); x += step)
            codeCoefficient(component, j, row[x]);
    }
}

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::codeCoefficient(int component, int levelClass, T code) {
    auto& encoders = m_block->encoders[component][levelClass];
    const int32_t magnitude = code >> 1;
    int significance = -1;
    if (magnitude > 0) {
        significance = std::bit_width(static_cast<uint32_t>(magnitude)) - 1;
        auto& refinements = m_block->refinements[component][levelClass];
        for (int p = 0; p < significance; ++p)
            refinements[p].putBit((magnitude >> p) & 1);
        encoders[significance].addOne(code & 1);
        ++m_block->significant[component][levelClass][significance];
    }
    for (int p = significance + 1; p <= m_topPlane; ++p)
        encoders[p].addZero();
}

/// Ends every chunk that holds bits and returns the estimated number of bits of the stream.
template <class T, class Filter>
uint64_t CWaveletEncoder<T, Filter>::closeChunks() {
    const auto& image = *this->m_image;
    const unsigned lengthBits = lengthFieldBits(image.width(), image.height());
    uint64_t estimate = 19;
    for (int c = 0; c < image.components(); ++c) {
        for (int j = 0; j <= m_levels; ++j) {
            for (int p = 0; p <= m_topPlane; ++p) {
                auto& encoder = m_block->encoders[c][j][p];
                encoder.close();
                estimate += 2 * (12 + lengthBits - 2 * static_cast<unsigned>(j)) + encoder.getStoredTotal() +
                            m_block->refinements[c][j][p].getTotal();
            }
        }
    }
    return estimate;
}

// ---- ordering the chunks into the stream

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::writeStream(CBitWriter& out) {
    out.putBits(static_cast<unsigned>(m_topPlane), 8);
    out.putBits(static_cast<unsigned>(m_levels), 8);
    for (auto& classes : m_block->emission)
        classes.fill({m_topPlane, m_topPlane - 1});
    for (int choice = chooseChunk(); choice >= 0; choice = chooseChunk())
        writeChunk(out, choice);
    out.putBits(3, 2);
    out.putBits(0, 9);
    out.storePartial();
}

/// The chunk with the greatest estimated benefit per bit, as (component * kMaxClasses + class) * 2 + kind;
/// below 0 at the end. The doubles are multiplied in exactly this order, since the order of the stream hangs
/// on their last bits.
template <class T, class Filter>
int CWaveletEncoder<T, Filter>::chooseChunk() const {
    constexpr double kGain = 3.7;
    constexpr double kEmptyScore = 4.2e11;
    double best = -1.0;
    int choice = -1;
    const auto consider = [&](double score, int index) {
        if (score > best) {
            best = score;
            choice = index;
        }
    };
    for (int c = 0; c < this->m_image->components(); ++c) {
        const double weight = c == 0 ? 1.0 : 0.2;
        for (int j = 0; j <= m_levels; ++j) {
            const Emission& next = m_block->emission[c][j];
            const int index = (c * kMaxClasses + j) * 2;
            if (const int p = next.significance; p >= 0) {
                double factor = 8.0 * weight;
                for (int step = 0; step < p + j; ++step)
                    factor *= kGain;
                const auto count = static_cast<double>(m_block->significant[c][j][p]);
                const auto bits = static_cast<double>(m_block->encoders[c][j][p].getStoredTotal());
                consider(bits == 0 ? kEmptyScore : count * factor / (bits + 1), index);
            }
            if (const int q = next.refinement; q >= std::max(next.significance, 0)) {
                double score = weight;
                for (int step = 0; step < q + j; ++step)
                    score *= kGain;
                consider(score, index + 1);
            }
        }
    }
    return best == 0.0 ? -1 : choice;
}

template <class T, class Filter>
void CWaveletEncoder<T, Filter>::writeChunk(CBitWriter& out, int choice) {
    const bool refinement = choice & 1;
    const int j = choice / 2 % kMaxClasses;
    const int c = choice / 2 / kMaxClasses;
    Emission& next = m_block->emission[c][j];
    CBitChunkWriter& chunk = refinement ? m_block->refinements[c][j][next.refinement--]
                                        : m_block->encoders[c][j][next.significance--].chunk();
    out.putBits(static_cast<unsigned>(c), 2);
    out.putBits(static_cast<unsigned>(j), 4);
    out.putBits(refinement, 1);
    // A count that does not fit its field loses its high bits; the chunk itself is always written whole.
    out.putBits(chunk.getTotal(), lengthFieldBits(this->m_image->width(), this->m_image->height()) -
                                      2 * static_cast<unsigned>(j));
    chunk.writeBitsTo(&out, 0);
}

template class CWaveletEncoder<int16_t, CFilter5_3<int16_t>>;
template class CWaveletEncoder<int32_t, CFilter5_3<int32_t>>;

}  // namespace dvq::kelt4
