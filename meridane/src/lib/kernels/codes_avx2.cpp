#include "lib/kernels/code_machines.h"

namespace meridane {

constinit const CodeKernels kAvx2CodeKernels = code_kernels_of<Avx2Machine, PanelProduct<Avx2Dot>>("AVX2");

}  // namespace meridane
