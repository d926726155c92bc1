#include "hsutils/nearestname.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace {

bool alike(char a, char b) {
    return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
}

/// Changes of single characters that make one text the other.
size_t distance(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);  // from each beginning of `to` to what was read of `from`
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (alike(from[i], to[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string nearestName(const std::string& name, const std::vector<std::string>& names) {
    return *std::min_element(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return distance(name, a) < distance(name, b);
    });
}
