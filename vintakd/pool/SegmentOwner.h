#pragma once

#include <string>

/// Whose segment is it? The living owner of a gateway segment holds a file lock on the object, so that a
/// daemon with another run directory does not take the name from under it, and so that a daemon that stops
/// removes the name only while it stands for its own object.

/// Whether another process owns the segment `name`. Not to be called by the owner: it would lose its lock.
bool segmentHasOwner(const char* name);

/// Makes the caller the owner of the object open at `descriptor`; false when somebody else is, or when
/// `name` has come to stand for another object. The lock ends with the process, or when it closes any
/// descriptor of the object.
bool ownSegment(const char* name, int descriptor);

/// Removes `name` when it stands for the object open at `descriptor`.
void removeOwnSegment(const char* name, int descriptor);
