#pragma once

#include <string>
#include <vector>

/// The one of `names` (at least one) that takes the fewest single characters to be added, taken away or
/// changed to become `name`, whatever the case of the letters; the first of several.
std::string nearestName(const std::string& name, const std::vector<std::string>& names);
