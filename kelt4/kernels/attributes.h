#pragma once

/// Kernels must not leave inline functions for the linker to merge with those of other files.
#define KELT_INLINE [[gnu::always_inline]] inline
#define KELT_RESTRICT __restrict__
