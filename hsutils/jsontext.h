#pragma once

#include <string>
#include <string_view>

/// `text` between quotes, escaped for JSON. Bytes that are no UTF-8 become U+FFFD, so that the result always
/// is.
std::string jsonText(std::string_view text);
