#include "nn/peak.h"
#include "nn/peak_loop.h"

namespace meridane::bench {

double multiply_adds_avx2() { return multiply_adds<8>(); }

}  // namespace meridane::bench
