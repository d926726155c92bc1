#include "vintakd/viewer/thumbnailbudget.h"

#include <cstdio>
#include <cstring>

#include "hsutils/HSProperties.h"

ThumbnailBudget ThumbnailBudget::read(const char* folder, const std::string& modality) {
    ThumbnailBudget budget;
    if (folder == nullptr) return budget;
    HSProperties properties;
    if (!properties.load((std::string(folder) + "/thumbnail.conf").c_str())) return budget;
    const char* value = properties.getProperty(("KELT_PERCENT_" + modality).c_str());
    if (value == nullptr) value = properties.getProperty("KELT_PERCENT");
    if (value == nullptr) return budget;
    char suffix[2] = "";
    // NOLINTNEXTLINE(cert-err34-c): what is no number changes nothing, what is too large is cut
    std::sscanf(value, "%lf%1s", &budget.percent, suffix);
    budget.ofThumbnail = std::strcmp(suffix, "t") == 0;
    return budget;
}

uint64_t ThumbnailBudget::bytes(uint64_t frameBytes, uint64_t thumbnailBytes) const {
    const double wanted = static_cast<double>(ofThumbnail ? thumbnailBytes : frameBytes) * percent / 100;
    if (!(wanted > 0)) return 0;  // Also what is no number.
    if (wanted >= static_cast<double>(thumbnailBytes)) return thumbnailBytes;
    return static_cast<uint64_t>(wanted);
}
