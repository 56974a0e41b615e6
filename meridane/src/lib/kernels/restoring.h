#pragma once

// From the integers of an 8-bit product to its floats, for the sources that hold kernels; compiled without contraction.

#include "lib/kernels/byte_kernels.h"
#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

template <std::size_t L>
void restore(const std::int32_t* d, const LineCodes& frame, const WeightLines& lines, const float* bias, float* y) {
  using Words = Vector<std::uint32_t, L>;
  using Ints = Vector<std::int32_t, L>;
  using Floats = Vector<float, L>;
  const auto Sx = static_cast<std::uint32_t>(frame.sum), rx = static_cast<std::uint32_t>(frame.zero);
  std::size_t i = 0;
  for (; i + L <= lines.count; i += L) {
    const auto words = [i](const std::int32_t* from) { return reinterpret_cast<Words>(load<L>(from + i)); };
    const Words sum = words(d) + Sx * words(lines.zeros) + rx * words(lines.offsets);
    const Floats product =
        __builtin_convertvector(reinterpret_cast<Ints>(sum), Floats) / (frame.scale * load<L>(lines.scales + i));
    store<L>(y + i, bias == nullptr ? product : load<L>(bias + i) + product);
  }
  for (; i < lines.count; ++i) {
    const auto word = [i](const std::int32_t* from) { return static_cast<std::uint32_t>(from[i]); };
    const std::uint32_t sum = word(d) + Sx * word(lines.zeros) + rx * word(lines.offsets);
    const float product = static_cast<float>(static_cast<std::int32_t>(sum)) / (frame.scale * lines.scales[i]);
    y[i] = bias == nullptr ? product : bias[i] + product;
  }
}

}  // namespace
}  // namespace meridane
