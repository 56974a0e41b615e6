#include "nn/peak.h"
#include "nn/peak_loop.h"

namespace meridane::bench {

double multiply_adds_avx512() { return multiply_adds<16>(); }

}  // namespace meridane::bench
