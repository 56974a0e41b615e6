#pragma once

// What the kernels of 8-bit codes ask of a machine, for SSE2 and AVX2; see quantizing.h and panel_product.h.

#include <immintrin.h>

#include "lib/kernels/code_table.h"
#include "lib/kernels/panel_product.h"

namespace meridane {
namespace {

struct Sse2Machine {
  static constexpr std::size_t kLanes = 4;
  using Floats = Vector<float, 4>;
  using Ints = Vector<std::int32_t, 4>;

  static MERIDANE_INLINE Ints truncated(Floats v) {
    return reinterpret_cast<Ints>(_mm_cvttps_epi32(reinterpret_cast<__m128>(v)));
  }
  static MERIDANE_INLINE Floats with_sign_of(Floats v, float magnitude) { return sign_and_magnitude<4>(v, magnitude); }
  static MERIDANE_INLINE Vector<std::uint8_t, 16> low_bytes(Ints a, Ints b, Ints c, Ints d) {
    return reinterpret_cast<Vector<std::uint8_t, 16>>(_mm_packus_epi16(low_words(a, b), low_words(c, d)));
  }
  static MERIDANE_INLINE Ints add_bytes(Ints sum, Vector<std::uint8_t, 16> bytes) {
    return sum + reinterpret_cast<Ints>(_mm_sad_epu8(reinterpret_cast<__m128i>(bytes), _mm_setzero_si128()));
  }

 private:
  static MERIDANE_INLINE __m128i low_words(Ints a, Ints b) {
    return _mm_packs_epi32(reinterpret_cast<__m128i>(a & 0xff), reinterpret_cast<__m128i>(b & 0xff));
  }
};

/// Sums of products of the even and of the odd codes.
struct Sse2Dot {
  using Value = std::int32_t;
  using Lanes = Vector<std::int32_t, 4>;
  static constexpr std::size_t kLanes = 4, kPanelVectors = 2, kParts = 2;

  template <std::size_t Part>
  static MERIDANE_INLINE Lanes part(Lanes w) {
    if constexpr (Part == 0) return w & 0x00ff00ff;
    return reinterpret_cast<Lanes>(_mm_srli_epi16(reinterpret_cast<__m128i>(w), 8));
  }
  static MERIDANE_INLINE Lanes factor(std::int32_t x) { return reinterpret_cast<Lanes>(_mm_set1_epi32(x)); }
  static MERIDANE_INLINE Lanes multiply_add(Lanes sum, Lanes w, Lanes x) {
    const __m128i products = _mm_madd_epi16(reinterpret_cast<__m128i>(w), reinterpret_cast<__m128i>(x));
    __m128i next = _mm_add_epi32(reinterpret_cast<__m128i>(sum), products);
    asm volatile("" : "+x"(next));  // in this order, or the products don't fit the registers
    return reinterpret_cast<Lanes>(next);
  }
};

#ifdef __AVX2__
struct Avx2Machine {
  static constexpr std::size_t kLanes = 8;
  using Floats = Vector<float, 8>;
  using Ints = Vector<std::int32_t, 8>;

  static MERIDANE_INLINE Ints truncated(Floats v) { return reinterpret_cast<Ints>(_mm256_cvttps_epi32(v)); }
  static MERIDANE_INLINE Floats with_sign_of(Floats v, float magnitude) { return sign_and_magnitude<8>(v, magnitude); }
  static MERIDANE_INLINE Vector<std::uint8_t, 32> low_bytes(Ints a, Ints b, Ints c, Ints d) {
    // Each half has four bytes of a, b, c and d.
    const __m256i halves = _mm256_packus_epi16(low_words(a, b), low_words(c, d));
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    return reinterpret_cast<Vector<std::uint8_t, 32>>(_mm256_permutevar8x32_epi32(halves, order));
  }
  static MERIDANE_INLINE Ints add_bytes(Ints sum, Vector<std::uint8_t, 32> bytes) {
    return sum + reinterpret_cast<Ints>(_mm256_sad_epu8(reinterpret_cast<__m256i>(bytes), _mm256_setzero_si256()));
  }

 private:
  static MERIDANE_INLINE __m256i low_words(Ints a, Ints b) {
    return _mm256_packs_epi32(reinterpret_cast<__m256i>(a & 0xff), reinterpret_cast<__m256i>(b & 0xff));
  }
};

struct Avx2Dot {
  using Value = std::int32_t;
  using Lanes = Vector<std::int32_t, 8>;
  static constexpr std::size_t kLanes = 8, kPanelVectors = 2, kParts = 2;

  template <std::size_t Part>
  static MERIDANE_INLINE Lanes part(Lanes w) {
    if constexpr (Part == 0) return w & 0x00ff00ff;
    return reinterpret_cast<Lanes>(_mm256_srli_epi16(reinterpret_cast<__m256i>(w), 8));
  }
  static MERIDANE_INLINE Lanes factor(std::int32_t x) { return reinterpret_cast<Lanes>(_mm256_set1_epi32(x)); }
  static MERIDANE_INLINE Lanes multiply_add(Lanes sum, Lanes w, Lanes x) {
    const __m256i products = _mm256_madd_epi16(reinterpret_cast<__m256i>(w), reinterpret_cast<__m256i>(x));
    __m256i next = _mm256_add_epi32(reinterpret_cast<__m256i>(sum), products);
    asm volatile("" : "+x"(next));  // in this order, or the products don't fit the registers
    return reinterpret_cast<Lanes>(next);
  }
};
#endif

}  // namespace
}  // namespace meridane
