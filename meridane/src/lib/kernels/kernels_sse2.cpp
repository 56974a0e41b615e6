#include "lib/kernels/kernel_table.h"

namespace meridane {

constinit const Kernels kSse2Kernels = kernels_of<4, 2, 2>("SSE2");

}  // namespace meridane
