#pragma once

#include <cstdint>

namespace sonivo::classic {

/// White noise of two values from a 16-bit shift register: f = (s15 xor s13) xor not(s2) is shifted in from below, and
/// the sample is +1 where f is 1, else -1.
class NoiseGenerator {
 public:
  void reset() { s_ = kStart; }
  int next() {
    const std::uint64_t f = (s_ >> 15 ^ s_ >> 13 ^ ~(s_ >> 2)) & 1u;
    s_ = s_ << 1 | f;
    return f != 0 ? 1 : -1;
  }

  /// The next 64 samples at once: a bit each, the first one highest, set for +1.
  std::uint64_t next64() {
    // The rule f(n) = f(n - 16) + f(n - 14) + f(n - 3) + 1 modulo 2, applied to itself twice, is
    // f(n) = f(n - 64) + f(n - 56) + f(n - 12): twelve steps that don't depend on each other.
    for (int i = 0; i < 5; ++i) s_ = s_ << 12 | ((s_ >> 52 ^ s_ >> 44 ^ s_) & 0xfffu);
    return s_ = s_ << 4 | ((s_ >> 60 ^ s_ >> 52 ^ s_ >> 8) & 0xfu);
  }

 private:
  static constexpr std::uint64_t kStart = 0x62a5a3bba6660001;  ///< the steps that lead to a register of 1

  std::uint64_t s_ = kStart;  ///< the latest 64 steps; the register is the lowest 16
};

}  // namespace sonivo::classic
