#include "keltlegacy/keltcompress.h"

#include "keltlegacy/compression.h"

size_t keltcompress(const void* pixels, int bitsUsed, int bytesPerPixel, int width, int height,
                    unsigned char* out, size_t outSize) {
    try {
        return keltlegacy::Compression(pixels, bitsUsed, bytesPerPixel, width, height)
            .CompressTo(out, outSize);
    } catch (int) {
        return 0;
    }
}
