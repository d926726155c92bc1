#pragma once

#include <cstdint>
#include <optional>

#include "hsutils/errorclass.h"
#include "imgproc/groupssearch.h"
#include "imgproc/leftout.h"
#include "imgproc/objectfile.h"

/// Where in an object's file lies what a conversion can do without, or reads for itself.
struct Unparsed {
    /// Given if the groups may stay in the file (imgproc/fileitems.h): there is one such sequence, in its
    /// place by the order of tags, whose items hold nothing that the private block's relocation moves, and no
    /// length of its group has to be told anew.
    std::optional<FrameGroups> groups{};
    /// The data set's own private elements of other makers: those with a value and not within sequences, the
    /// data set's first element excepted; none where the data set is deflated.
    LeftOut foreign{};
};

/// What becomes of an object in a transfer syntax that the toolkit does not know.
enum class UnknownSyntax {
    refused,  ///< there is no decoder for its pixels, and what is taken for plain ones would be wrong
    guessed,  ///< the encoding of its elements is what the first of them looks like, as the parser has it
};

/// The first door for objects: looks over the structure of a file before the toolkit's parser
/// builds a tree of it, and says why it must not, or nothing when it may. The parser calls itself for every
/// level of nesting, takes memory for every element and unpacks a deflated object without end; this needs a
/// stack of its own and one small buffer, and jumps over the values. Follows the parser's reading of the file
/// in all that the parser accepts, so that both see the same object; that a length may not reach beyond what
/// holds it is the one point where this is stricter, and an item of a sequence that is too short is no such
/// case. Limits: objectlimits.
///
/// `unparsed` is told what need not be parsed when that is not null.
std::optional<RefusalText> scanObject(ObjectFile& object, Unparsed* unparsed = nullptr,
                                      UnknownSyntax unknown = UnknownSyntax::refused);

/// Whether these are private elements that are not this system's.
bool isForeignGroup(uint16_t group);
