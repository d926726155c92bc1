#include "render/dicomimage.h"

#include <algorithm>
#include <cstdio>

int CDicomImage::Create(int, int) {
    return 0;
}

int CDicomImage::Create(int, int, void*) {
    return 0;
}

unsigned char* CDicomImage::GetImageLine(int, int) {
    return nullptr;
}

unsigned char* CDicomImage::GetImageLine(int, int, int, unsigned char*) {
    return nullptr;
}

CSize CDicomImage::EncapsulatedSize(CSize target) const {
    constexpr int64_t kSmallestSide = 32;
    // Whoever stores the copy has 16 bits for a side, and a strip of pixels must not grow by its length
    // squared.
    constexpr int64_t kLargestSide = 65535;
    if (target == m_size) return target;
    if (m_size.cx <= 0 || m_size.cy <= 0) return {};

    CSize fitted;
    if (target.cx * m_size.cy < target.cy * m_size.cx)
        fitted = {target.cx, target.cx * m_size.cy / m_size.cx};
    else
        fitted = {target.cy * m_size.cx / m_size.cy, target.cy};
    if (fitted.cx <= 0 || fitted.cy <= 0) fitted = m_size;
    while (std::min(fitted.cx, fitted.cy) < kSmallestSide &&
           2 * std::max(fitted.cx, fitted.cy) <= kLargestSide)
        fitted = {fitted.cx * 2, fitted.cy * 2};
    return fitted;
}

int CDicomImage::SaveToFile(const char* path) const {
    FILE* file = std::fopen(path, "w");
    if (file == nullptr) return 0;
    const bool written = std::fwrite(m_pixels, 1, m_bufferSize, file) == m_bufferSize;
    return std::fclose(file) == 0 && written ? 1 : 0;
}
