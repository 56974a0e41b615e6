#include "lib/kernels/kernel_table.h"

namespace meridane {

constinit const Kernels kAvx512Kernels = kernels_of<16, 4, 6>("AVX-512");

}  // namespace meridane
