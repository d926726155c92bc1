#include "kelt4/kernel.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelt4/kernel_list.h"

#ifdef VINTAKD_KELT_AVX2
#include <cpuid.h>
#endif

namespace dvq::kelt4 {

namespace {

#ifdef VINTAKD_KELT_AVX2
/// What kernel_avx2.cpp is compiled for. Every processor with AVX2 has the rest, but a virtual machine may
/// hide some.
bool canRunAvx2() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    const bool lzcnt = __get_cpuid(0x80000001, &a, &b, &c, &d) != 0 && (c & bit_ABM) != 0;
    return lzcnt && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

/// What kernel_avx512.cpp is compiled for besides that.
bool canRunAvx512() {
    return canRunAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512vpopcntdq");
}
#endif

std::vector<Kernel> listKernels() {
    std::vector<Kernel> kernels;
    const Kernel portable = portableKernel();
#ifdef VINTAKD_KELT_AVX2
    // Parallel bit deposit and extract are microcoded on the first two Zen generations (family 17h): slower
    // there than what they replace. The kernel remains selectable by name.
    if (canRunAvx2()) {
        kernels.push_back(avx2Kernel());
        if (canRunAvx512()) kernels.insert(kernels.begin(), avx512Kernel());
        if (__builtin_cpu_is("amdfam17h")) kernels.insert(kernels.begin(), portable);
    }
#endif
    if (kernels.empty() || kernels.front().name != portable.name) kernels.push_back(portable);
    Kernel reference = portable;
    reference.name = "reference";
    reference.encode = nullptr;
    kernels.push_back(reference);
    return kernels;
}

const Kernel& chooseKernel() {
    const char* const forced = std::getenv(kKernelVariable);
    return forced != nullptr && *forced != '\0' ? findKernel(forced) : availableKernels().front();
}

}  // namespace

std::span<const Kernel> availableKernels() {
    static const std::vector<Kernel> kernels = listKernels();
    return kernels;
}

const Kernel& findKernel(std::string_view name) {
    std::string usable;
    for (const Kernel& kernel : availableKernels()) {
        if (kernel.name == name) return kernel;
        usable.append(usable.empty() ? "" : ", ").append(kernel.name);
    }
    throw std::invalid_argument(std::string(kKernelVariable) + ": no usable kernel is called \"" +
                                std::string(name) + "\"; usable here: " + usable);
}

const Kernel& activeKernel() {
    static const Kernel& kernel = chooseKernel();
    return kernel;
}

}  // namespace dvq::kelt4
