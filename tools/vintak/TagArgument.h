#pragma once

#include <cstdint>
#include <string>

/// A tag as the user names it: "gggg,eeee" in hexadecimal (brackets allowed) or the dictionary's keyword.
struct TagArgument {
    uint16_t group = 0;
    uint16_t element = 0;

    /// Throws UsageError for what is neither.
    static TagArgument parse(const std::string& text);

    /// "(gggg,eeee)".
    std::string number() const;
    /// The dictionary's keyword, empty where it has none.
    std::string keyword() const;
};
