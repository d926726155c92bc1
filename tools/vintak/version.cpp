#include "tools/vintak/version.h"

#include <cstdio>

#include "tools/vintak/exitcodes.h"

int printVersion() {
    printf("vintak %s\n", VINTAKD_VERSION);
    return kAllDone;
}
