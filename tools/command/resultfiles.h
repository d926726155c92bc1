#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/command/Session.h"

/// The bit of a request's mask that asks for a pack.
inline constexpr int kPackedMask = 0x20;

/// A file that a conversion wrote.
struct ResultFile {
    std::string path;
    uint64_t size = 0;
};

/// The files that there are of those that `request`, a conversion, asks for: of the object, then frame by
/// frame for as many as its descriptor names.
std::vector<ResultFile> resultsOf(const Request& request);

/// Whether an earlier conversion has done all that `request` asks for, and the object did not change since.
/// It must want the processed copy, which is written last: by that a conversion that came to its end differs
/// from one that was cut short. `session` is asked what the copy says. Trusted is a copy that
///   - can be read to its last element and lists as many frames as the object declares and the descriptor
///   has,
///   - is younger than all other files, which are all there, whole lines and not empty (a short stream has no
///   rest),
///   - while the object is older than all of them, in content and in place.
/// Throws NoDaemon.
bool hasCompleteResults(const Request& request, Session& session);
