#pragma once

// Compiled once per instruction set.

#include <cstddef>

namespace meridane::bench {
namespace {

template <std::size_t Lanes>
struct Floats {
  typedef float Vector __attribute__((vector_size(Lanes * sizeof(float))));  // g++ takes no alias for a vector here
};

/// More sums side by side than two units with a latency of four have under way.
template <std::size_t Lanes>
double multiply_adds() {
  using Vector = typename Floats<Lanes>::Vector;
  constexpr int kSums = 12, kRounds = 1000;
  Vector sums[kSums] = {}, factor = {};
  factor += 0.5f;
  for (int round = 0; round < kRounds; ++round) {
#pragma GCC unroll 12
    for (int i = 0; i < kSums; ++i) {
      sums[i] = sums[i] * factor + factor;
      asm volatile("" : "+v"(sums[i]));  // each step counts
    }
  }
  return static_cast<double>(Lanes) * kSums * kRounds;
}

}  // namespace
}  // namespace meridane::bench
