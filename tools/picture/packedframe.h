#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace picture {

/// A file as it would be beside its frame, within a pack: INDEX#N.suffix, where INDEX ends in ".index" and N
/// is the frame's place in viewing order, from 1.
struct PackedFile {
    std::string index;
    uint64_t place = 0;
    std::string suffix;  ///< ".t.qi4" ..., or ".desc" for the line of the frame; empty when there was none
};

/// Nothing for a path of another form.
std::optional<PackedFile> packedFileOf(const std::string& path);

/// Throws PictureError.
std::vector<uint8_t> readPacked(const PackedFile& file);
/// Throws PictureError where the pack itself is not as it should be.
bool isInPack(const PackedFile& file);

/// The path with the suffix of the most exact that the frame has, where it is INDEX#N alone; otherwise the
/// path itself. Throws PictureError.
std::string wholePath(const std::string& path);

}  // namespace picture
