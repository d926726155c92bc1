#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace view {

/// A converted object as the page lists it, or one that could not be converted.
struct ViewedObject {
    std::string name;       ///< for people
    std::string prefix{};   ///< of its files on disk: prefix + ".desc", prefix + "_1.p.qi4" ...
    int frames = 0;         ///< lines of the descriptor
    bool packed = false;    ///< the frames are in a pack, prefix + ".index"
    bool document = false;  ///< there is a prefix + ".pdf"
    std::string error{};    ///< why there is nothing to see; empty when there is
};

/// The kinds of files that a frame may have and a page may ask for.
inline constexpr std::string_view kFrameSuffixes[] = {".p.qi4", ".t.qi4", ".f.qi4", ".128x128t.cw1", ".raw"};

/// The files of a pack that a page may ask for.
inline constexpr std::string_view kPackSuffixes[] = {".index", ".small", ".heads", ".rests"};

/// What lies below a prefix: the frames that the descriptor names, or of a pack its index, and whether there
/// is a document. Nothing when there is neither. The pack is taken where it `isPackNamed` or not older than
/// the descriptor.
ViewedObject describeResults(std::string name, const std::string& prefix, bool isPackNamed = false);

/// Whether the results below `prefix` are whole (a stream and a thumbnail of every frame, or a document) and
/// younger than the object at `path`.
bool isConverted(const std::string& path, const std::string& prefix);

/// The list for the page, in JSON. The files of object i are named "results/i/o" + what follows the prefix on
/// disk.
std::string objectsJson(std::span<const ViewedObject> objects);

}  // namespace view
