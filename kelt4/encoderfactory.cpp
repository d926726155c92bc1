#include "kelt4/encoderfactory.h"

#include "kelt4/fastencoder.h"
#include "kelt4/waveletencoder.h"

namespace dvq::kelt4 {

namespace {

template <class T>
std::unique_ptr<IWaveletEncoder> createReference(int components, int width, int height) {
    return std::make_unique<CWaveletEncoder<T, CFilter5_3<T>>>(
        std::make_unique<CoefficientImage<T>>(components, width, height), levelsFor(width, height));
}

}  // namespace

std::unique_ptr<IWaveletEncoder> createEncoder(const Kernel& kernel, int bytesPerPixel, int width,
                                               int height) {
    if (width < 0 || width > kMaxSide || height < 0 || height > kMaxSide) return nullptr;
    if (bytesPerPixel < 1 || bytesPerPixel > 3) return nullptr;
    if (kernel.encode != nullptr) return std::make_unique<FastEncoder>(kernel, bytesPerPixel, width, height);
    if (bytesPerPixel == 2) return createReference<int32_t>(1, width, height);
    return createReference<int16_t>(bytesPerPixel == 3 ? 3 : 1, width, height);
}

}  // namespace dvq::kelt4
