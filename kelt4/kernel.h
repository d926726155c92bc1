#pragma once

#include <span>
#include <string_view>

namespace dvq::kelt4 {

struct EncodeJob;
struct DecodeJob;

/// The inner loops of the coder for one instruction set. All kernels produce the same bytes.
///
/// Known names: "portable" (plain C++), "avx2" (AVX2 and BMI2), "avx512" (AVX-512 up to VBMI2, decoding with
/// the loops of avx2) and "reference" (the plain encoder of waveletencoder.h, decoding with the portable
/// loops).
struct Kernel {
    std::string_view name;
    /// Null for the reference, which encodes coefficient by coefficient. False when a guarded job's
    /// coefficients have outgrown its elements: its chunks are of no use then.
    bool (*encode)(const EncodeJob& job);
    void (*decode)(DecodeJob& job);
};

/// Environment variable that forces a kernel by name.
inline constexpr const char* kKernelVariable = "VINTAKD_KELT_KERNEL";

/// The kernels that this processor can run, the fastest first and the reference last.
std::span<const Kernel> availableKernels();

/// The kernel of that name; throws std::invalid_argument, naming the usable ones, when it is unknown or when
/// this processor cannot run it.
const Kernel& findKernel(std::string_view name);

/// The kernel in use: the one that VINTAKD_KELT_KERNEL names when it is set and not empty, else the fastest.
/// The choice is made once per process; a bad name throws std::invalid_argument on every call.
const Kernel& activeKernel();
inline std::string_view activeKernelName() {
    return activeKernel().name;
}

}  // namespace dvq::kelt4
