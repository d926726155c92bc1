#pragma once

#include <string>
#include <vector>

namespace view {

/// The DICOM objects behind `words`, in order: a file as it is named; of a folder, its files and those of its
/// folders that begin as a DICOM file does ("DICM" at byte 128), by name. Folders behind symbolic links are
/// not entered. Throws std::runtime_error for what does not exist or cannot be read.
std::vector<std::string> findObjects(const std::vector<std::string>& words);

}  // namespace view
