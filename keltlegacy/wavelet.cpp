#include "keltlegacy/wavelet.h"

#include <algorithm>
#include <utility>

#include "keltlegacy/classcoder.h"

namespace keltlegacy {

template <class T>
LevelClasses<T> Wavelet<T>::transform(std::vector<T> plane, int w, int h, int levels) const {
    LevelClasses<T> classes;
    for (int level = 0; level < levels && !killed(); ++level) {
        const auto stride = static_cast<size_t>(w);
        for (int y = 0; y < h; ++y)
            m_filter->transformInner(plane.data() + y * stride, w);
        m_filter->transformColumns(plane.data(), h, stride, w);
        classes.push_back(takeDetails(plane, stride, static_cast<size_t>(h)));
        w = (w + 1) / 2;
        h = (h + 1) / 2;
    }
    classes.push_back(std::move(plane));
    return classes;
}

template <class T>
std::vector<T> Wavelet<T>::untransform(LevelClasses<T> classes, int w, int h) const {
    std::vector<T> plane = std::move(classes.back());
    for (int level = static_cast<int>(classes.size()) - 2; level >= 0; --level) {
        const int levelWidth = (w + (1 << level) - 1) >> level;
        const int levelHeight = (h + (1 << level) - 1) >> level;
        const auto stride = static_cast<size_t>(levelWidth);
        plane = putDetails(plane, std::exchange(classes[level], {}), stride, levelHeight);
        m_filter->untransformColumns(plane.data(), levelHeight, stride, levelWidth);
        for (int y = 0; y < levelHeight; ++y)
            m_filter->untransformInner(plane.data() + y * stride, levelWidth);
    }
    return plane;
}

template <class T>
void Wavelet<T>::writeWavelet(std::span<const LevelClasses<T>> components, BitStreamer& out) {
    constexpr int kTopPlaneBits = 8;
    int topPlane = 0;
    std::vector<std::vector<ClassCoder>> coders;
    for (const LevelClasses<T>& classes : components) {
        auto& classCoders = coders.emplace_back();
        for (const std::vector<T>& coefficients : classes) {
            classCoders.emplace_back(std::span<const T>(coefficients));
            topPlane = std::max(topPlane, classCoders.back().topPlane());
        }
    }
    out.append(static_cast<uint32_t>(topPlane), kTopPlaneBits);

    const int lastClass = static_cast<int>(components.front().size()) - 1;
    for (int diagonal = topPlane + lastClass; diagonal >= 0; --diagonal)
        for (auto& classCoders : coders)
            for (int j = 0; j <= lastClass; ++j) {
                const int plane = diagonal - j;
                if (plane >= 0 && plane <= topPlane)
                    classCoders[static_cast<size_t>(j)].appendPlane(plane, out);
            }
}

template class Wavelet<int16_t>;
template class Wavelet<int32_t>;

}  // namespace keltlegacy
