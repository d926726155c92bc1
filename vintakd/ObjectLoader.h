#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <string>

/// Loads an object from @p path into @p file and checks its structure and transfer syntax before anything
/// else sees it; whether its pixels can be converted is the conversion's question. Values longer than 1024
/// bytes stay in the file and are read on demand; with @p dumponly, all values are loaded. Throws
/// VintakdErrorException with "Error loading file: ", the path and the cause.
void loadObject(DcmFileFormat& file, const std::string& path, bool dumponly);

/// Largest file whose values are all loaded at once, in bytes.
inline constexpr unsigned long long kLargestLoadedFile = 1ull << 30;
