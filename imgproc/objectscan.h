#pragma once

#include <optional>

#include "hsutils/errorclass.h"
#include "imgproc/leftout.h"
#include "imgproc/objectfile.h"

/// The first door for objects: looks over the structure of a file before the toolkit's parser
/// builds a tree of it, and says why it must not, or nothing when it may. The parser calls itself for every
/// level of nesting, takes memory for every element and unpacks a deflated object without end; this needs a
/// stack of its own and one small buffer, and jumps over the values. Follows the parser's reading of the file
/// in all that the parser accepts, so that both see the same object; that a length may not reach beyond what
/// holds it is the one point where this is stricter, and an item of a sequence that is too short is no such
/// case. Limits: objectlimits.
///
/// Where the data set's own private elements of other makers lie goes into `foreign` when that is not null:
/// those with a value and not within sequences, none where the data set is deflated.
std::optional<RefusalText> scanObject(ObjectFile& object, LeftOut* foreign = nullptr);

/// Whether these are private elements that are not this system's.
bool isForeignGroup(uint16_t group);
