#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "kelt4/aligned.h"
#include "kelt4/geometry.h"

namespace dvq::kelt4 {

/// The coefficient planes of one frame: 1 or 3 components of width x height elements of T, 32-byte aligned,
/// row after row without padding.
template <class T>
class CoefficientImage {
public:
    CoefficientImage(int components, int width, int height)
        : m_components(components), m_width(width), m_height(height) {
        const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
        for (int c = 0; c < components; ++c) {
            m_raw[c].reset(new T[count + 31]);
            const auto address = reinterpret_cast<uintptr_t>(m_raw[c].get());
            m_planes[c] = m_raw[c].get() + ((32 - address % 32) % 32) / sizeof(T);
        }
    }

    int components() const { return m_components; }
    int width() const { return m_width; }
    int height() const { return m_height; }
    /// Elements between the starts of two rows.
    int stride() const { return m_width; }
    T* plane(int component) const { return m_planes[component]; }
    T* row(int component, int y) const { return m_planes[component] + static_cast<int64_t>(y) * m_width; }

private:
    std::array<std::unique_ptr<T[]>, kMaxComponents> m_raw;
    std::array<T*, kMaxComponents> m_planes{};
    int m_components;
    int m_width;
    int m_height;
};

/// Base of the encoder: the coefficient image it works on and owns.
template <class T>
class CWavelet : public CAligned<8> {
public:
    explicit CWavelet(std::unique_ptr<CoefficientImage<T>> image) : m_image(std::move(image)) {}

    const CoefficientImage<T>& image() const { return *m_image; }

protected:
    ~CWavelet() = default;

    std::unique_ptr<CoefficientImage<T>> m_image;
};

}  // namespace dvq::kelt4
