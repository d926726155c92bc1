#pragma once

#include <cstddef>
#include <new>

namespace dvq::kelt4 {

/// Base of objects whose storage starts at a multiple of N bytes.
template <size_t N>
class CAligned {
public:
    static void* operator new(size_t size) { return ::operator new (size, std::align_val_t{N}); }
    static void operator delete(void* block) { ::operator delete (block, std::align_val_t{N}); }

protected:
    ~CAligned() = default;
};

}  // namespace dvq::kelt4
