#pragma once

#include <cstdint>
#include <vector>

/// A chest made of ellipsoids: body with a layer of fat, lungs with vessels, heart, spine, ribs.
/// Deterministic.
class Chest {
public:
    /// Density in Hounsfield units at a point; x (to the patient's left), y (to the back) and z (to the head)
    /// run from -1 to 1 over the volume.
    static double density(double x, double y, double z);

    /// One axial slice of size x size samples, row by row: density + 1024 with scanner noise, 12 bits
    /// unsigned.
    static std::vector<uint16_t> slice(unsigned size, double z);
};
