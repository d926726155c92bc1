#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <string>

#include "vintakd/viewer/outputquota.h"

/// Saves an object as it is now to `path`: in the transfer syntax that it was read in, with sequences and
/// items of undefined length, recalculated group lengths and a new meta header. Throws VintakdErrorException
/// with "Error writing file: ", the path and the cause. The toolkit's own file stream forgets what a full
/// disk says when the file is closed; this one does not. Every byte is taken from `quota` before it is
/// written.
void saveObject(DcmFileFormat& file, const std::string& path, OutputQuota& quota);
