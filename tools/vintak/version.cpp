#include "tools/vintak/version.h"

#include <cstdio>
#include <string>

#include "kelt4/kernel.h"
#include "tools/picture/exitcodes.h"

int printVersion() {
    printf("vintak %s\nstream coder kernel: %s (of", VINTAKD_VERSION,
           std::string(dvq::kelt4::activeKernelName()).c_str());
    for (const auto& kernel : dvq::kelt4::availableKernels())
        printf(" %s", std::string(kernel.name).c_str());
    printf(")\n");
    return kAllDone;
}
