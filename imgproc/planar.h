#pragma once

#include <cstddef>

/// Rearranges the planes R...R G...G B...B of `bytes` / 3 bytes each into RGB RGB ... in place.
void interleavePlanes(char* planes, size_t bytes);
