#pragma once

// Quantizing of a line, for the sources that hold kernels. They are compiled without contraction: s x is rounded before
// anything is taken off, so that each machine gives the same codes.

#include "lib/kernels/byte_kernels.h"
#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

/// Machine says, for vectors of kLanes:
///   truncated(v): as int, the least int if it doesn't fit; with_sign_of(v, magnitude), magnitude at least 0;
///   low_bytes(a, b, c, d): of each lane, all of a first; add_bytes(sum, bytes): adds them to any lanes of the sum.
template <class Machine>
class Quantizing {
  static constexpr std::size_t L = Machine::kLanes, kBlock = 4 * L;
  using V = Vector<float, L>;
  using Ints = Vector<std::int32_t, L>;
  using Words = Vector<std::uint32_t, L>;
  using Bytes = Vector<std::uint8_t, kBlock>;

 public:
  static LineCodes quantize(const float* x, std::size_t count, std::size_t padded, std::uint8_t* codes) {
    const Range range = range_of(x, count);
    const float s = range.maximum != range.minimum ? 255.0f / (range.maximum - range.minimum)
                    : range.minimum != 0.0f        ? 1.0f / range.minimum
                                                   : 255.0f;
    const std::int32_t zero = rounded(broadcast<L>(s * range.minimum))[0];

    // r is taken off as a byte. In float the difference is exact, as it spans 255 at most, and the low byte of what
    // fits no int is 0 as that of the least int is; so both have the same low byte.
    const Bytes r = Bytes{} + static_cast<std::uint8_t>(zero & 0xff);
    const auto codes_of = [&](const float* from) {
      const auto q = [&](std::size_t i) { return rounded(s * load<L>(from + i * L)); };
      return Machine::low_bytes(q(0), q(1), q(2), q(3)) - r;
    };
    Ints sums{};
    std::size_t k = 0;
    for (; k + kBlock <= count; k += kBlock) {
      const Bytes q = codes_of(x + k);
      store<kBlock>(codes + k, q);
      sums = Machine::add_bytes(sums, q);
    }
    if (k < count && count >= kBlock) {
      // The last block overlaps the one before.
      const Bytes q = codes_of(x + (count - kBlock));
      store<kBlock>(codes + (count - kBlock), q);
      sums = Machine::add_bytes(sums, q & load<kBlock>(kLast.bytes + (count - k)));
      k = count;
    } else if (k < count) {
      float values[kBlock] = {};
      std::uint8_t all_codes[kBlock];
      for (std::size_t i = 0; i < count; ++i) values[kBlock - count + i] = x[i];
      const Bytes q = codes_of(values) & load<kBlock>(kLast.bytes + count);
      store<kBlock>(all_codes, q);
      sums = Machine::add_bytes(sums, q);
      for (; k < count; ++k) codes[k] = all_codes[kBlock - count + k];
    }
    for (; k < padded; ++k) codes[k] = 0;
    return {s, zero, fold(sums, [](auto a, auto b) { return a + b; })};
  }

 private:
  struct Range {
    float minimum, maximum;
  };

  // A block from byte n on has its last n bytes set.
  struct Mask {
    std::uint8_t bytes[2 * kBlock];
  };
  static constexpr Mask last_bytes() {
    Mask mask{};
    for (std::size_t i = kBlock; i < 2 * kBlock; ++i) mask.bytes[i] = 0xff;
    return mask;
  }
  static constexpr Mask kLast = last_bytes();

  // Neither is a number if one of the values is none.
  static MERIDANE_INLINE Range range_of(const float* x, std::size_t count) {
    // Four of each, so that one needn't wait for the other.
    V least[4], most[4], total[4] = {};
    MERIDANE_UNROLL
    for (std::size_t i = 0; i < 4; ++i) least[i] = most[i] = broadcast<L>(x[0]);
    const auto take = [&](V v, std::size_t i) {
      least[i] = v < least[i] ? v : least[i];
      most[i] = v > most[i] ? v : most[i];
      total[i] += v;
    };
    std::size_t k = 0;
    for (; k + kBlock <= count; k += kBlock) {
      MERIDANE_UNROLL
      for (std::size_t i = 0; i < 4; ++i) take(load<L>(x + k + i * L), i);
    }
    for (; k + L <= count; k += L) take(load<L>(x + k), 0);
    if (k < count) take(count < L ? load_first<L>(x, count, x[0]) : load<L>(x + (count - L)), 1);
    // The total is no number if one of the values is none; infinities may lead there too.
    const float sum = fold((total[0] + total[1]) + (total[2] + total[3]), [](auto a, auto b) { return a + b; });
    if (sum != sum) {
      for (std::size_t i = 0; i < count; ++i) {
        if (x[i] != x[i]) return {__builtin_nanf(""), __builtin_nanf("")};
      }
    }
    const auto lesser = [](auto a, auto b) { return a < b ? a : b; };
    const auto greater = [](auto a, auto b) { return a > b ? a : b; };
    return {fold(lesser(lesser(least[0], least[1]), lesser(least[2], least[3])), lesser),
            fold(greater(greater(most[0], most[1]), greater(most[2], most[3])), greater)};
  }

  // Ties away from zero: the sum with the float before 0.5 passes an integer from the tie on, as the sum is rounded
  // too.
  static MERIDANE_INLINE Ints rounded(V v) {
    constexpr float kBelowHalf = 0x1.fffffep-2f;
    return Machine::truncated(v + Machine::with_sign_of(v, kBelowHalf));
  }
};

}  // namespace
}  // namespace meridane
