#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace pack {

/// Which kinds of files the frames of separate objects have, found by reading their folders once: to ask for
/// the files that are not there takes a file system longer than to read those that are. Memory grows with the
/// objects alone.
class ElementKinds {
public:
    /// `prefixes` are those of the objects. A folder that holds more than `most` names is not read on: of its
    /// objects any kind is possible.
    ElementKinds(const std::vector<std::string>& prefixes, uint64_t most);

    /// Bit i: a frame of the object may have kElements[i].
    uint8_t of(const std::string& prefix) const;

private:
    bool read(const std::string& folder, uint64_t most);
    void note(const std::string& folder, std::string_view name);

    std::unordered_map<std::string, uint8_t> m_kinds;
};

}  // namespace pack
