#include "lib/kernels/code_machines.h"

namespace meridane {
namespace {

struct Avx512Machine {
  static constexpr std::size_t kLanes = 16;
  using Floats = Vector<float, 16>;
  using Ints = Vector<std::int32_t, 16>;
  static constexpr __mmask16 kAll = 0xffff;  // g++ 12 warns of the forms without a mask

  static MERIDANE_INLINE Ints truncated(Floats v) { return reinterpret_cast<Ints>(_mm512_maskz_cvttps_epi32(kAll, v)); }
  static MERIDANE_INLINE void store_bytes(std::uint8_t* to, Ints v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm512_maskz_cvtepi32_epi8(kAll, reinterpret_cast<__m512i>(v)));
  }
};

struct Avx512VnniDot {
  using Value = std::int32_t;
  using Lanes = Vector<std::int32_t, 16>;
  static constexpr std::size_t kLanes = 16, kPanelVectors = 4, kParts = 1;

  template <std::size_t>
  static MERIDANE_INLINE Lanes part(Lanes w) {
    return w;
  }
  static MERIDANE_INLINE Lanes factor(std::int32_t x) { return reinterpret_cast<Lanes>(_mm512_set1_epi32(x)); }
  static MERIDANE_INLINE Lanes multiply_add(Lanes sum, Lanes w, Lanes x) {
    return reinterpret_cast<Lanes>(_mm512_dpbusd_epi32(reinterpret_cast<__m512i>(sum), reinterpret_cast<__m512i>(w),
                                                       reinterpret_cast<__m512i>(x)));
  }
};

}  // namespace

constinit const CodeKernels kAvx512VnniCodeKernels =
    code_kernels_of<Avx512Machine, PanelProduct<Avx512VnniDot>>("AVX-512 VNNI");

}  // namespace meridane
