#include "lib/kernels/kernel_table.h"

namespace meridane {

constinit const Kernels kAvx2Kernels = kernels_of<8, 2, 2>("AVX2");

}  // namespace meridane
