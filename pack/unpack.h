#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace pack {

/// Writes the separate files of a pack again, named prefix + the object's name + suffix, and makes the
/// folders that the names want below the prefix. What a file replaces is removed first; a link is never
/// followed. The pack is checked as a whole before anything is written. Returns the number of files. Throws
/// PackError, also once `stops` says so: the files that were written by then stay, each of them whole, and an
/// object's .desc is there only with all others of it.
uint64_t unpack(const std::string& index, const std::string& prefix, const std::function<bool()>& stops = {});

}  // namespace pack
