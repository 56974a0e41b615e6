#pragma once

// Quantizing of a line, for the sources that hold kernels. They are compiled without contraction: s x is rounded before
// anything is taken off, so that each machine gives the same codes.

#include "lib/kernels/byte_kernels.h"
#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

/// Machine says, for vectors of kLanes:
///   truncated(v): as int, the least int if it doesn't fit; store_bytes(to, v): the low byte of each.
template <class Machine>
class Quantizing {
  static constexpr std::size_t L = Machine::kLanes;
  using V = Vector<float, L>;
  using Ints = Vector<std::int32_t, L>;
  using Words = Vector<std::uint32_t, L>;

 public:
  static LineCodes quantize(const float* x, std::size_t count, std::size_t padded, std::uint8_t* codes) {
    const Range range = range_of(x, count);
    const float s = range.maximum != range.minimum ? 255.0f / (range.maximum - range.minimum)
                    : range.minimum != 0.0f        ? 1.0f / range.minimum
                                                   : 255.0f;
    const std::int32_t zero = rounded(broadcast<L>(s * range.minimum))[0];

    // r is taken off as an integer. In float the difference is exact, as it spans 255 at most, and the low byte of what
    // fits no int is 0 as that of the least int is; so both have the same low byte.
    const Words r = Words{} + static_cast<std::uint32_t>(zero);
    const auto code = [&](V v) { return reinterpret_cast<Words>(rounded(s * v)) - r; };
    Words sums{};
    std::size_t k = 0;
    for (; k + L <= count; k += L) {
      const Words q = code(load<L>(x + k));
      Machine::store_bytes(codes + k, reinterpret_cast<Ints>(q));
      sums += q & 0xffu;
    }
    std::uint32_t sum = fold(sums, [](auto a, auto b) { return a + b; });
    if (k < count) {
      const Words q = code(load_first<L>(x + k, count - k, x[k]));
      for (std::size_t i = 0; k < count; ++i, ++k) {
        codes[k] = static_cast<std::uint8_t>(q[i] & 0xffu);
        sum += codes[k];
      }
    }
    for (; k < padded; ++k) codes[k] = 0;
    return {s, zero, static_cast<std::int32_t>(sum)};
  }

 private:
  struct Range {
    float minimum, maximum;
  };

  // Neither is a number if one of the values is none.
  static MERIDANE_INLINE Range range_of(const float* x, std::size_t count) {
    // Two of each, so that one needn't wait for the other.
    V least[2], most[2];
    Ints none{};
    least[0] = least[1] = broadcast<L>(__builtin_inff());
    most[0] = most[1] = -least[0];
    const auto take = [&](V v, std::size_t i) {
      least[i] = v < least[i] ? v : least[i];
      most[i] = v > most[i] ? v : most[i];
      none |= v != v;
    };
    std::size_t k = 0;
    for (; k + 2 * L <= count; k += 2 * L) {
      take(load<L>(x + k), 0);
      take(load<L>(x + k + L), 1);
    }
    for (; k + L <= count; k += L) take(load<L>(x + k), 0);
    if (k < count) take(load_first<L>(x + k, count - k, x[k]), 1);
    if (fold(none, [](auto a, auto b) { return a | b; }) != 0) return {__builtin_nanf(""), __builtin_nanf("")};
    const V minimum = least[0] < least[1] ? least[0] : least[1], maximum = most[0] > most[1] ? most[0] : most[1];
    return {fold(minimum, [](auto a, auto b) { return a < b ? a : b; }),
            fold(maximum, [](auto a, auto b) { return a > b ? a : b; })};
  }

  // Ties away from zero: the sum with the float before 0.5 passes an integer from the tie on, as the sum is rounded
  // too.
  static MERIDANE_INLINE Ints rounded(V v) {
    constexpr std::uint32_t kBelowHalf = 0x3effffffu;
    return Machine::truncated(v + reinterpret_cast<V>((reinterpret_cast<Words>(v) & 0x80000000u) | kBelowHalf));
  }
};

}  // namespace
}  // namespace meridane
