#pragma once

#include "kelt4/kernel.h"

/// The kernels that are compiled in, one per instruction set and file. Only kernel.cpp, which asks the
/// processor first, calls these.
namespace dvq::kelt4 {

Kernel portableKernel();
Kernel avx2Kernel();
/// Encodes with AVX-512 and decodes as the kernel above.
Kernel avx512Kernel();

}  // namespace dvq::kelt4
