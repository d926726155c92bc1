#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace picture {

/// A file that cannot be shown; the text says why.
class PictureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The bytes of a regular file, or of a file within a pack (packedframe.h), of at most 1 GiB. Throws
/// PictureError.
std::vector<uint8_t> readFile(const std::string& path);
bool isFile(const std::string& path);

/// Why a file whose name tells none of the viewer's kinds cannot be shown: there is none, it is a whole pack,
/// or it is another kind of file.
std::string whyUnknown(const std::string& path);

/// `path` with the suffix `from`, which it must have, replaced by `to`.
std::string withSuffix(const std::string& path, std::string_view from, std::string_view to);

/// PREFIX_N, the frame that a file belongs to, from the name PREFIX_N.suffix, or INDEX#N from INDEX#N.suffix,
/// which is in a pack; frame 0 when the name is different.
struct FrameName {
    std::string stem;        ///< what the suffixes of the frame's files follow
    std::string descriptor;  ///< the file with its line
    int frame = 0;           ///< in the descriptor; -1 for the only line that there is
};
FrameName frameNameOf(const std::string& path);

}  // namespace picture
