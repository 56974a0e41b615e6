#include "feature_extractor/wide_real_fft_passes.h"

namespace sonivo {

constinit const WideRealFft kAvx512RealFft = wide_real_fft<16>("AVX-512");

}  // namespace sonivo
