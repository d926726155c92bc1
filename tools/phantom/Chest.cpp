#include "tools/phantom/Chest.h"

#include <algorithm>
#include <cmath>

namespace {

struct Ellipsoid {
    double x, y, z;
    double radiusX, radiusY, radiusZ;

    /// Below 1 inside.
    double distance(double px, double py, double pz) const {
        const double dx = (px - x) / radiusX;
        const double dy = (py - y) / radiusY;
        const double dz = (pz - z) / radiusZ;
        return dx * dx + dy * dy + dz * dz;
    }
    bool holds(double px, double py, double pz) const { return distance(px, py, pz) < 1; }
};

constexpr Ellipsoid kBody{0, 0, 0, 0.92, 0.66, 3.0};
constexpr Ellipsoid kMuscle{0, 0, 0, 0.86, 0.60, 2.9};
constexpr Ellipsoid kRibCage{0, 0, 0, 0.80, 0.54, 2.2};
constexpr Ellipsoid kInside{0, 0, 0, 0.765, 0.505, 2.1};
constexpr Ellipsoid kRightLung{-0.40, 0.0, 0.1, 0.31, 0.42, 1.05};
constexpr Ellipsoid kLeftLung{0.42, 0.0, 0.1, 0.29, 0.42, 1.05};
constexpr Ellipsoid kHeart{0.12, -0.12, -0.25, 0.30, 0.26, 0.55};
constexpr Ellipsoid kAorta{0.10, 0.26, 0, 0.07, 0.07, 5.0};
constexpr Ellipsoid kVertebra{0, 0.38, 0, 0.13, 0.11, 5.0};
constexpr Ellipsoid kSpinalCanal{0, 0.50, 0, 0.05, 0.05, 5.0};
constexpr Ellipsoid kTrachea{0, 0.10, 0.9, 0.05, 0.05, 0.75};

double lungTissue(double x, double y, double z) {
    // Vessels: bright where three slow waves meet.
    const double wave = std::sin(17 * x + 5 * z) * std::sin(19 * y - 7 * z) * std::sin(11 * z + 13 * x * y);
    return wave > 0.55 ? -150 : -860;
}

double boneOrSoft(double x, double y, double z) {
    if (kSpinalCanal.holds(x, y, z)) return 20;
    if (kVertebra.holds(x, y, z)) return std::sin(18 * z) > -0.8 ? 550 : 90;
    const bool shell = kRibCage.holds(x, y, z) && !kInside.holds(x, y, z);
    if (shell && std::sin(24 * (z + 0.35 * y)) > 0.2) return 700;
    return 45;
}

uint32_t hash(uint32_t value) {
    value ^= value >> 16;
    value *= 0x7FEB352Du;
    value ^= value >> 15;
    value *= 0x846CA68Bu;
    return value ^ (value >> 16);
}

/// Roughly normal, a dozen units wide.
double noise(uint32_t seed) {
    const uint32_t bits = hash(seed);
    const int sum = static_cast<int>((bits & 255) + (bits >> 8 & 255) + (bits >> 16 & 255) + (bits >> 24));
    return (sum - 510) / 12.0;
}

}  // namespace

double Chest::density(double x, double y, double z) {
    if (!kBody.holds(x, y, z)) return -1000;
    if (!kMuscle.holds(x, y, z)) return -100;
    if (kTrachea.holds(x, y, z)) return -990;
    if (kHeart.holds(x, y, z)) return kHeart.distance(x, y, z) < 0.45 ? 180 : 60;
    if (kAorta.holds(x, y, z)) return 190;
    if (kRightLung.holds(x, y, z) || kLeftLung.holds(x, y, z)) return lungTissue(x, y, z);
    return boneOrSoft(x, y, z);
}

std::vector<uint16_t> Chest::slice(unsigned size, double z) {
    std::vector<uint16_t> samples(static_cast<size_t>(size) * size);
    const auto sliceSeed = static_cast<uint32_t>(std::lround((z + 2) * 100000));
    for (unsigned row = 0; row < size; ++row) {
        for (unsigned column = 0; column < size; ++column) {
            const double x = 2.0 * (column + 0.5) / size - 1;
            const double y = 2.0 * (row + 0.5) / size - 1;
            const double value = density(x, y, z) + 1024 + noise(sliceSeed * 7919u + row * size + column);
            samples[static_cast<size_t>(row) * size + column] =
                static_cast<uint16_t>(std::clamp(std::lround(value), 0L, 4095L));
        }
    }
    return samples;
}
