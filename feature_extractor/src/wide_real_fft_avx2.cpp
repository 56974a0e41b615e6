#include "feature_extractor/wide_real_fft_passes.h"

namespace sonivo {

constinit const WideRealFft kAvx2RealFft = wide_real_fft<8>("AVX2");

}  // namespace sonivo
