#include "lib/kernels/code_machines.h"

namespace meridane {
namespace {

struct AvxVnniDot {
  using Value = std::int32_t;
  using Lanes = Vector<std::int32_t, 8>;
  static constexpr std::size_t kLanes = 8, kPanelVectors = 2, kParts = 1;

  template <std::size_t>
  static MERIDANE_INLINE Lanes part(Lanes w) {
    return w;
  }
  static MERIDANE_INLINE Lanes factor(std::int32_t x) { return reinterpret_cast<Lanes>(_mm256_set1_epi32(x)); }
  static MERIDANE_INLINE Lanes multiply_add(Lanes sum, Lanes w, Lanes x) {
    return reinterpret_cast<Lanes>(_mm256_dpbusd_avx_epi32(reinterpret_cast<__m256i>(sum), reinterpret_cast<__m256i>(w),
                                                           reinterpret_cast<__m256i>(x)));
  }
};

}  // namespace

constinit const CodeKernels kAvxVnniCodeKernels = code_kernels_of<Avx2Machine, PanelProduct<AvxVnniDot>>("AVX-VNNI");

}  // namespace meridane
