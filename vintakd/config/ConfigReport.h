#pragma once

#include <string>
#include <vector>

/// A setting as it holds.
struct ConfigValue {
    std::string file;  ///< the configuration file that it belongs to, without its folder
    std::string name;
    std::string value;
    std::string source;  ///< "default", or PATH:LINE
};

/// What a look at the configuration found. All texts are on one line.
struct ConfigReport {
    std::vector<ConfigValue> values;
    std::vector<std::string> problems;  ///< each is reason enough not to start
    std::vector<std::string> notes;     ///< what one may not expect
};
