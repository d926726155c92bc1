#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <string>

#include "imgproc/objectscan.h"

/// How much of an object the request needs at once.
enum class ObjectValues {
    onDemand,                ///< long values stay in the file until somebody reads them
    onDemandWithoutForeign,  ///< the same, and the data set's own private elements of other makers need not
                             ///< be there
    forConversion,           ///< many frames' functional groups stay there as well (imgproc/fileitems.h)
    withoutForeign,          ///< the same without those private elements
    allForListing,           ///< every value in memory, for a dump that prints them all
};

/// What a request needs that prints all elements (`verbose`) or wants no conversion (`dumponly`), that
/// `asksForTags`, or that asks for private elements of other makers or whose copy of the object keeps them.
ObjectValues valuesFor(bool verbose, bool dumponly, bool asksForTags, bool keepsForeign);

/// Loads an object from `path` into `file`. Its bytes are scanned before the toolkit parses them
/// (imgproc/objectscan.h), its structure and transfer syntax are checked before anything else sees it;
/// whether its pixels can be converted is the conversion's question. Values longer than `maxReadLength`
/// bytes stay in the file first. Who wants no pixels need not refuse an `unknown` transfer syntax. Throws
/// VintakdErrorException with "Error loading file: ", the path and the cause.
void loadObject(DcmFileFormat& file, const std::string& path, Uint32 maxReadLength, ObjectValues values,
                UnknownSyntax unknown = UnknownSyntax::refused);
