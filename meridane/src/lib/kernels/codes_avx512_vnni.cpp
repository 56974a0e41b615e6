#include "lib/kernels/code_machines.h"

namespace meridane {
namespace {

struct Avx512Machine {
  static constexpr std::size_t kLanes = 16;
  using Floats = Vector<float, 16>;
  using Ints = Vector<std::int32_t, 16>;
  static constexpr __mmask16 kAll = 0xffff;  // g++ 12 warns of the forms without a mask

  static MERIDANE_INLINE Ints truncated(Floats v) { return reinterpret_cast<Ints>(_mm512_maskz_cvttps_epi32(kAll, v)); }
  static MERIDANE_INLINE Floats with_sign_of(Floats v, float magnitude) {
    const __m512i sign = _mm512_set1_epi32(INT32_MIN), m = _mm512_castps_si512(_mm512_set1_ps(magnitude));
    return reinterpret_cast<Floats>(_mm512_ternarylogic_epi32(reinterpret_cast<__m512i>(v), sign, m, 0xea));
  }
  static MERIDANE_INLINE Vector<std::uint8_t, 64> low_bytes(Ints a, Ints b, Ints c, Ints d) {
    // Each quarter has four bytes of a, b, c and d.
    const __m512i quarters = _mm512_packus_epi16(low_words(a, b), low_words(c, d));
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    return reinterpret_cast<Vector<std::uint8_t, 64>>(_mm512_maskz_permutexvar_epi32(kAll, order, quarters));
  }
  static MERIDANE_INLINE Ints add_bytes(Ints sum, Vector<std::uint8_t, 64> bytes) {
    return sum + reinterpret_cast<Ints>(_mm512_sad_epu8(reinterpret_cast<__m512i>(bytes), _mm512_setzero_si512()));
  }

 private:
  static MERIDANE_INLINE __m512i low_words(Ints a, Ints b) {
    return _mm512_packs_epi32(reinterpret_cast<__m512i>(a & 0xff), reinterpret_cast<__m512i>(b & 0xff));
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
