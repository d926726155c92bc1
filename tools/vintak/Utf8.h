#pragma once

#include <string>

#include "hsutils/jsontext.h"

/// `value`, encoded as Specific Character Set (0008,0005) `characterSet` says, in UTF-8. What cannot be
/// converted is taken byte by byte for Latin-1, so that the result is always UTF-8.
std::string toUtf8(const std::string& value, const std::string& characterSet);
