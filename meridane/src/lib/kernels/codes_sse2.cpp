#include "lib/kernels/code_machines.h"

namespace meridane {

constinit const CodeKernels kSse2CodeKernels = code_kernels_of<Sse2Machine, PanelProduct<Sse2Dot>>("SSE2");

}  // namespace meridane
