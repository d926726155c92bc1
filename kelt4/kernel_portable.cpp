#include "kelt4/kernel_list.h"
#include "kelt4/kernels/classdecoder.h"
#include "kelt4/kernels/classencoder.h"
#include "kelt4/kernels/framedecoder.h"
#include "kelt4/kernels/frameencoder.h"
#include "kelt4/kernels/portable.h"

namespace dvq::kelt4 {

Kernel portableKernel() {
    using kernels::Portable;
    return {"portable", kernels::FrameEncoder<Portable, kernels::ClassEncoder<Portable>>::encode,
            kernels::ClassDecoder<Portable>::significance, kernels::ClassDecoder<Portable>::refinement,
            kernels::FrameDecoder<Portable>::reconstruct};
}

}  // namespace dvq::kelt4
