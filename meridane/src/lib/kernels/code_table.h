#pragma once

// What the kernels of 8-bit codes share, for the sources that hold them.

#include "lib/kernels/code_kernels.h"
#include "lib/kernels/quantizing.h"
#include "lib/kernels/restoring.h"

namespace meridane {
namespace {

inline void prepare_signed_bytes(const std::uint8_t* codes, std::size_t words, std::int32_t* factors) {
  for (std::size_t k = 0; k < words; ++k) {
    std::uint32_t word;
    __builtin_memcpy(&word, codes + 4 * k, sizeof word);
    factors[k] = static_cast<std::int32_t>(word ^ 0x80808080u);
  }
}

inline void prepare_halves(const std::uint8_t* codes, std::size_t words, std::int32_t* factors) {
  for (std::size_t k = 0; k < words; ++k) {
    std::uint32_t word;
    __builtin_memcpy(&word, codes + 4 * k, sizeof word);
    factors[2 * k] = static_cast<std::int32_t>(word & 0x00ff00ffu);
    factors[2 * k + 1] = static_cast<std::int32_t>((word >> 8) & 0x00ff00ffu);
  }
}

template <class Machine, class Product>
constexpr CodeKernels code_kernels_of(const char* name) {
  return {.name = name,
          .quantize = Quantizing<Machine>::quantize,
          .lanes = Product::kLanes,
          .panel_height = Product::kHeight,
          .factors = Product::kParts == 1 ? CodeKernels::Factors::kSignedBytes : CodeKernels::Factors::kHalves,
          .prepare = Product::kParts == 1 ? prepare_signed_bytes : prepare_halves,
          .multiply = Product::multiply,
          .restore = restore<Machine::kLanes>};
}

}  // namespace
}  // namespace meridane
