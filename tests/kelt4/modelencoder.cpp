#include "tests/kelt4/modelencoder.h"

#include <cmath>
#include <cstdlib>

namespace {

struct Bits : std::vector<bool> {
    void put(uint64_t value, int count) {
        for (int i = 0; i < count; ++i)
            push_back(value >> i & 1);
    }
    void put(const Bits& other) { insert(end(), other.begin(), other.end()); }
};

int msb(int64_t value) {
    int result = -1;
    for (; value > 0; value /= 2)
        ++result;
    return result;
}

/// lround() rounds halves away from zero.
void lift(std::vector<int>& x) {
    const int n = static_cast<int>(x.size());
    const auto mirrored = [&](int i) {
        return x[static_cast<size_t>(i < 0 ? -i : i >= n ? 2 * (n - 1) - i : i)];
    };
    for (int i = 1; i < n; i += 2)
        x[static_cast<size_t>(i)] -= std::lround((mirrored(i - 1) + mirrored(i + 1)) / 2.0);
    for (int i = 0; i < n; i += 2)
        x[static_cast<size_t>(i)] += std::lround((mirrored(i - 1) + mirrored(i + 1)) / 4.0);
}

using Plane = std::vector<std::vector<int>>;

void transform(Plane& plane, int levels) {
    for (size_t step = 1; levels > 0; --levels, step *= 2) {
        for (size_t y = 0; y < plane.size(); y += step) {
            std::vector<int> line;
            for (size_t x = 0; x < plane[y].size(); x += step)
                line.push_back(plane[y][x]);
            lift(line);
            for (size_t i = 0; i < line.size(); ++i)
                plane[y][i * step] = line[i];
        }
        for (size_t x = 0; x < plane[0].size(); x += step) {
            std::vector<int> line;
            for (size_t y = 0; y < plane.size(); y += step)
                line.push_back(plane[y][x]);
            lift(line);
            for (size_t i = 0; i < line.size(); ++i)
                plane[i * step][x] = line[i];
        }
    }
}

Plane loadPlane(const std::vector<uint8_t>& pixels, int bytesPerPixel, int component, int width, int height) {
    Plane plane(static_cast<size_t>(height), std::vector<int>(static_cast<size_t>(width)));
    const uint8_t* at = pixels.data();
    for (auto& row : plane) {
        for (int& sample : row) {
            const int r = at[0], g = bytesPerPixel > 1 ? at[1] : 0, b = bytesPerPixel > 2 ? at[2] : 0;
            if (bytesPerPixel < 3) sample = r + 256 * g;
            if (bytesPerPixel == 3)
                sample = component == 0 ? (r + 2 * g + b) / 4 : component == 1 ? r - g : b - g;
            at += bytesPerPixel;
        }
    }
    return plane;
}

/// The values of one level class in raster order.
std::vector<int> classValues(const Plane& plane, int levels, int wanted) {
    const auto level = [&](size_t i) {
        int result = 0;
        while (result < levels && i % (size_t{2} << result) == 0)
            ++result;
        return result;
    };
    std::vector<int> values;
    for (size_t y = 0; y < plane.size(); ++y) {
        for (size_t x = 0; x < plane[y].size(); ++x) {
            if (std::min(level(x), level(y)) == wanted) values.push_back(plane[y][x]);
        }
    }
    return values;
}

struct Chunks {
    Bits significance;
    Bits refinement;
    int significant = 0;
};

Chunks codePlane(const std::vector<int>& values, int plane) {
    Chunks chunks;
    int run = 0;
    const auto putRun = [&] {
        if (run < 2) {
            chunks.significance.put(0, run);
            chunks.significance.put(1, 1);
        } else {
            chunks.significance.put(0, 1 + msb(run));
            chunks.significance.put(1, 1);
            chunks.significance.put(static_cast<uint64_t>(run), msb(run));
        }
        run = 0;
    };
    for (const int value : values) {
        const int significance = msb(std::abs(value));
        if (significance > plane) chunks.refinement.put(static_cast<uint64_t>(std::abs(value)) >> plane, 1);
        if (significance < plane) ++run;
        if (significance != plane) continue;
        putRun();
        chunks.significance.put(value < 0, 1);
        ++chunks.significant;
    }
    if (chunks.significant > 0) putRun();
    return chunks;
}

struct Class {
    int significance;
    int refinement;
    std::vector<Chunks> planes;
};

double power(double start, int steps) {
    while (steps-- > 0)
        start *= 3.7;
    return start;
}

/// Appends the chunk with the best score; false when none is left.
bool putBest(std::vector<std::vector<Class>>& classes, int fieldBits, Bits& out) {
    double best = -1;
    size_t component = 0, level = 0;
    bool refine = false;
    for (size_t c = 0; c < classes.size(); ++c) {
        for (size_t j = 0; j < classes[c].size(); ++j) {
            const Class& one = classes[c][j];
            const double weight = c == 0 ? 1.0 : 0.2;
            const auto take = [&](double score, bool refinement) {
                if (score <= best) return;
                best = score;
                component = c;
                level = j;
                refine = refinement;
            };
            if (one.significance >= 0) {
                const Chunks& chunks = one.planes[static_cast<size_t>(one.significance)];
                const double factor = power(8.0 * weight, one.significance + static_cast<int>(j));
                const auto bits = static_cast<double>(chunks.significance.size());
                take(bits == 0 ? 4.2e11 : chunks.significant * factor / (bits + 1), false);
            }
            if (one.refinement >= 0 && one.refinement >= one.significance) {
                take(power(weight, one.refinement + static_cast<int>(j)), true);
            }
        }
    }
    if (best <= 0) return false;
    Class& chosen = classes[component][level];
    const int plane = refine ? chosen.refinement-- : chosen.significance--;
    const Chunks& chunks = chosen.planes[static_cast<size_t>(plane)];
    const Bits& bits = refine ? chunks.refinement : chunks.significance;
    out.put(component, 2);
    out.put(level, 4);
    out.put(refine, 1);
    out.put(bits.size(), fieldBits - 2 * static_cast<int>(level));
    out.put(bits);
    return true;
}

}  // namespace

std::vector<uint8_t> modelEncode(const std::vector<uint8_t>& pixels, int bytesPerPixel, int bitsUsed,
                                 int width, int height) {
    int levels = 0;
    while (levels < 8 && std::min(width, height) >> (levels + 4) > 0)
        ++levels;
    std::vector<std::vector<std::vector<int>>> values(bytesPerPixel == 3 ? 3 : 1);
    int top = 0;
    for (size_t c = 0; c < values.size(); ++c) {
        Plane plane = loadPlane(pixels, bytesPerPixel, static_cast<int>(c), width, height);
        transform(plane, levels);
        for (int j = 0; j <= levels; ++j) {
            values[c].push_back(classValues(plane, levels, j));
            for (const int value : values[c].back())
                top = std::max(top, msb(std::abs(value)));
        }
    }
    std::vector<std::vector<Class>> classes(values.size());
    for (size_t c = 0; c < values.size(); ++c) {
        for (const auto& list : values[c]) {
            Class one{top, top - 1, {}};
            for (int p = 0; p <= top; ++p)
                one.planes.push_back(codePlane(list, p));
            classes[c].push_back(std::move(one));
        }
    }
    Bits stream;
    stream.put(static_cast<uint64_t>(top), 8);
    stream.put(static_cast<uint64_t>(levels), 8);
    const int fieldBits = msb(int64_t{width} * height * 3 / 2) + 1;
    while (putBest(classes, fieldBits, stream)) {
    }
    stream.put(3, 11);

    std::vector<uint8_t> payload = {'K', 'T', '4', '1'};
    for (const int value :
         {bytesPerPixel, bitsUsed, width, width >> 8, height, height >> 8, 0, 0, 0, 0, 0, 0}) {
        payload.push_back(static_cast<uint8_t>(value));
    }
    payload.resize(16 + (stream.size() + 7) / 8);
    for (size_t i = 0; i < stream.size(); ++i) {
        payload[16 + i / 8] = static_cast<uint8_t>(payload[16 + i / 8] | stream[i] << (i % 8));
    }
    return payload;
}
