#include "kelt4/kernel_list.h"
#include "kelt4/kernels/classencoder.h"
#include "kelt4/kernels/framedecoder.h"
#include "kelt4/kernels/frameencoder.h"
#include "kelt4/kernels/portable.h"

namespace dvq::kelt4 {

Kernel portableKernel() {
    using kernels::Portable;
    return {"portable", kernels::FrameEncoder<Portable, kernels::ClassEncoder<Portable>>::encode,
            kernels::FrameDecoder<Portable>::decode};
}

}  // namespace dvq::kelt4
