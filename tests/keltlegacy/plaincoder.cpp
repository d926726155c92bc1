#include "tests/keltlegacy/plaincoder.h"

#include <cmath>
#include <cstdlib>
#include <random>

namespace plain {
namespace {

using Plane = std::vector<std::int64_t>;
using Bits = std::vector<bool>;

std::int64_t nearest(std::int64_t a, std::int64_t divisor) {
    const std::int64_t quotient = (std::abs(a) + divisor / 2) / divisor;
    return a < 0 ? -quotient : quotient;
}

int levelCount(int w, int h) {
    int levels = 5;
    while (levels > 0 && ((1 << levels) > w / 2 || (1 << levels) > h / 2))
        --levels;
    return levels;
}

int classOf(int x, int y, int levels) {
    int j = 0;
    while (j < levels && ((x | y) >> j) % 2 == 0)
        ++j;
    return j;
}

int topBit(std::int64_t m) {
    int bit = -1;
    for (; m != 0; m >>= 1)
        ++bit;
    return bit;
}

int runParameter(double significant, double candidates) {
    if (significant == 0 || candidates == 0) return 2;
    const double q = significant / candidates;
    if (q > 0.21384) return 0;
    if (q > 0.11385) return 2;
    if (q > 0.05838) return 3;
    const double r = std::floor(0.48 / q + 0.5);
    if (r < 5) return 2;
    for (int k = 3; k < 24; ++k)
        if (std::pow(2, k) >= r) return k;
    return 24;
}

void put(Bits& bits, std::int64_t value, int count) {
    for (int i = 0; i < count; ++i)
        bits.push_back((value >> i & 1) != 0);
}

struct Stream {
    Bits significance, refinement;
    int k = 0;
    std::int64_t run = 0, candidates = 0, significant = 0;
};

std::vector<Plane> load(const Bytes& pixels, int bytesPerPixel, int w, int h) {
    const int n = w * h;
    std::vector<Plane> planes(bytesPerPixel == 3 ? 3 : 1, Plane(n));
    for (int i = 0; i < n; ++i) {
        const std::uint8_t* p = &pixels[static_cast<std::size_t>(i) * bytesPerPixel];
        if (bytesPerPixel == 1) planes[0][i] = p[0];
        if (bytesPerPixel == 2) planes[0][i] = p[0] + 256 * p[1];
        if (bytesPerPixel == 3) {
            planes[0][i] = (p[0] + 2 * p[1] + p[2]) / 4;
            planes[1][i] = p[0] - p[1];
            planes[2][i] = p[2] - p[1];
        }
    }
    return planes;
}

void transformPlane(Plane& plane, int w, int h, int levels, bool wrap) {
    for (int level = 0; level < levels; ++level) {
        const int s = 1 << level;
        for (int y = 0; y < h; y += s)
            transformLine(&plane[y * w], (w - 1) / s + 1, s, wrap);
        for (int x = 0; x < w; x += s)
            transformLine(&plane[x], (h - 1) / s + 1, w * s, wrap);
    }
}

/// Fills the streams [class][plane] of one component.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): plain loops, one for each index of the format
void codePlane(const Plane& plane, int w, int h, int levels, int top,
               std::vector<std::vector<Stream>>& streams) {
    streams.assign(levels + 1, std::vector<Stream>(top + 1));
    const auto forEach = [&](auto action) {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                action(streams[classOf(x, y, levels)], plane[y * w + x]);
    };
    forEach([&](std::vector<Stream>& ofClass, std::int64_t v) {
        for (int p = 0; p <= top; ++p) {
            ofClass[p].candidates += topBit(std::abs(v)) <= p;
            ofClass[p].significant += topBit(std::abs(v)) == p;
        }
    });
    for (auto& ofClass : streams)
        for (Stream& s : ofClass) {
            s.k = runParameter(s.significant, s.candidates);
            put(s.significance, s.k, 5);
        }
    forEach([&](std::vector<Stream>& ofClass, std::int64_t v) {
        const std::int64_t m = std::abs(v);
        for (int p = 0; p <= top; ++p) {
            Stream& s = ofClass[p];
            if (topBit(m) > p) s.refinement.push_back((m >> p & 1) != 0);
            if (topBit(m) < p) ++s.run;
            if (topBit(m) != p) continue;
            for (; s.run >= 1 << s.k; s.run -= 1 << s.k)
                s.significance.push_back(false);
            s.significance.push_back(true);
            put(s.significance, s.run, s.k);
            s.significance.push_back(v < 0);
            s.run = 0;
        }
    });
    for (auto& ofClass : streams)
        for (Stream& s : ofClass) {
            for (; s.run >= 1 << s.k; s.run -= 1 << s.k)
                s.significance.push_back(false);
            if (s.run > 0) s.significance.push_back(false);
        }
}

}  // namespace

void transformLine(std::int64_t* x, int n, int step, bool wrap) {
    if (n < 2) return;
    const auto at = [=](int i) -> std::int64_t& {
        while (i < 0 || i > n - 1)
            i = i < 0 ? -i : n - 1 - (i - (n - 1));
        return x[static_cast<std::ptrdiff_t>(i) * step];
    };
    for (int i = 1; i < n; i += 2) {
        std::int64_t sum = 9 * (at(i - 1) + at(i + 1)) - (at(i - 3) + at(i + 3));
        if (wrap) sum = ((sum + 32768) % 65536 + 65536) % 65536 - 32768;
        at(i) -= nearest(sum, 16);
    }
    for (int i = 0; i < n; i += 2)
        at(i) = nearest(152 * (at(i) + nearest(at(i - 1) + at(i + 1), 4)), 128);
}

Bytes compress(const Bytes& pixels, int bitsUsed, int bytesPerPixel, int w, int h) {
    const int levels = levelCount(w, h);
    std::vector<Plane> planes = load(pixels, bytesPerPixel, w, h);
    int top = 0;
    for (Plane& plane : planes) {
        transformPlane(plane, w, h, levels, bytesPerPixel != 2);
        for (const std::int64_t v : plane)
            top = std::max(top, topBit(std::abs(v)));
    }
    std::vector<std::vector<std::vector<Stream>>> streams(planes.size());
    for (std::size_t c = 0; c < planes.size(); ++c)
        codePlane(planes[c], w, h, levels, top, streams[c]);

    Bits bits;
    put(bits, top, 8);
    for (int d = top + levels; d >= 0; --d)
        for (const auto& ofComponent : streams)
            for (int j = 0; j <= levels; ++j) {
                if (d - j < 0 || d - j > top) continue;
                const Stream& s = ofComponent[j][d - j];
                bits.insert(bits.end(), s.refinement.begin(), s.refinement.end());
                bits.insert(bits.end(), s.significance.begin(), s.significance.end());
            }

    Bytes out{'K', 'T', '1', '0'};
    for (const int value : {bytesPerPixel, bitsUsed, w, w >> 8, h, h >> 8})
        out.push_back(static_cast<std::uint8_t>(value));
    for (std::size_t i = 0; i < bits.size(); ++i) {
        if (i % 8 == 0) out.push_back(0);
        out.back() |= static_cast<std::uint8_t>(bits[i] << (i % 8));
    }
    return out;
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): a list of pictures
Bytes picture(int kind, int bytesPerPixel, int w, int h) {
    const int samples = bytesPerPixel == 3 ? 3 : 1;
    const int largest = bytesPerPixel == 2 ? 65535 : 255;
    std::mt19937 random(static_cast<unsigned>(kind * 1000 + w * 7 + h));
    Bytes out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < samples; ++c) {
                int v = 0;
                if (kind == 0) v = static_cast<int>(random() % (largest + 1u));
                if (kind == 1)
                    v = (x * (c + 2) + y * 3) * (largest + 1) / 1024 + static_cast<int>(random() % 6);
                if (kind == 2) v = largest / 3;
                if (kind == 3) v = (x / 8 + y / 16 + c) % 2 * largest;
                if (kind == 4) v = x == w / 2 && y == h / 3 ? largest : 0;
                if (kind == 5) v = (x + y + c) % 2 * largest;
                v = std::min(v, largest);
                out.push_back(static_cast<std::uint8_t>(v));
                if (bytesPerPixel == 2) out.push_back(static_cast<std::uint8_t>(v >> 8));
            }
    return out;
}

}  // namespace plain
