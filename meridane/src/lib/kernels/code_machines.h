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
  static MERIDANE_INLINE void store_bytes(std::uint8_t* to, Ints v) {
    const __m128i bytes = reinterpret_cast<__m128i>(v & 0xff), words = _mm_packs_epi32(bytes, bytes);
    const int four = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    __builtin_memcpy(to, &four, sizeof four);
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
  static MERIDANE_INLINE void store_bytes(std::uint8_t* to, Ints v) {
    const __m256i bytes = reinterpret_cast<__m256i>(v & 0xff);
    const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(words, words));
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
