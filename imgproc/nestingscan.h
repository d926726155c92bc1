#pragma once

#include <optional>
#include <string>

/// Looks through the element headers of a file for what must not reach the toolkit's reader: it descends into
/// sequences by recursion, so that deep nesting would exhaust the stack, and it inflates deflated objects in
/// memory. Says why the file is refused, or nothing. A file that makes no sense is left for the reader to
/// explain.
std::optional<std::string> scanFile(const std::string& path);
