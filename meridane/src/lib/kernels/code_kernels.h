#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/kernels/byte_kernels.h"
#include "lib/kernels/panels.h"

namespace meridane {

/// The loops of 8-bit arithmetic, compiled once per instruction set. A step of a product takes a word of four codes per
/// line and frame.
struct CodeKernels {
  const char* name;

  LineCodes (*quantize)(const float* x, std::size_t count, std::size_t padded, std::uint8_t* codes);

  std::size_t lanes;         ///< words of a vector
  std::size_t panel_height;  ///< lines
  /// What the frames hold per step: one word of codes - 128 as signed bytes, or two words with the even and with the
  /// odd codes as 16 bits each.
  enum class Factors { kSignedBytes, kHalves } factors;
  /// Codes of a frame in that form.
  void (*prepare)(const std::uint8_t* codes, std::size_t words, std::int32_t* factors);
  void (*multiply)(const Product<std::int32_t>& product);
  void (*restore)(const std::int32_t* d, const LineCodes& frame, const WeightLines& lines, const float* bias, float* y);
};

// The best that runs here is the last.
extern const CodeKernels kPortableCodeKernels;
extern const CodeKernels kSse2CodeKernels;
extern const CodeKernels kAvx2CodeKernels;
extern const CodeKernels kAvxVnniCodeKernels;     ///< AVX2 with dot products of bytes
extern const CodeKernels kAvx512VnniCodeKernels;  ///< F, VL, DQ, BW and VNNI
inline constexpr const CodeKernels* kAllCodeKernels[] = {&kPortableCodeKernels, &kSse2CodeKernels, &kAvx2CodeKernels,
                                                         &kAvxVnniCodeKernels, &kAvx512VnniCodeKernels};

bool runs_here(const CodeKernels& kernels);
/// The last of kAllCodeKernels that runs here; found out once.
const CodeKernels& best_code_kernels();

}  // namespace meridane
