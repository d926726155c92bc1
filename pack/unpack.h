#pragma once

#include <cstdint>
#include <string>

namespace pack {

/// Writes the separate files of a pack again, named prefix + the object's name + suffix, and makes the
/// folders that the names want below the prefix. What a file replaces is removed first; a link is never
/// followed. The pack is checked as a whole before anything is written. Returns the number of files. Throws
/// PackError.
uint64_t unpack(const std::string& index, const std::string& prefix);

}  // namespace pack
