#pragma once

// The loop of tap_sum() in element_wise.h, for the sources that hold kernels. The weights of some features stay in
// registers while the frames pass by, so that a step of a sum reads nothing but its value.

#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

template <std::size_t L>
class TapLoops {
  using V = Vector<float, L>;
  // What fits the registers: so many taps by so many vectors, their starts and their sums.
  static constexpr std::size_t kTaps = 4, kVectors = L == 16 ? 4 : 2;
  // Few enough for what is fetched beside the features to be there when these are done.
  static constexpr std::size_t kFrames = 16;

 public:
  static void tap_sum(const float* x, std::size_t step, std::size_t frames, std::size_t count, std::size_t taps,
                      std::size_t distance, const float* weight, const float* bias, float* y) {
    static constexpr Add add_of_taps[kTaps][2] = {{add<1, false>, add<1, true>},
                                                  {add<2, false>, add<2, true>},
                                                  {add<3, false>, add<3, true>},
                                                  {add<4, false>, add<4, true>}};
    for (std::size_t first = 0; first < frames; first += kFrames) {
      for (std::size_t k = 0; k < taps; k += kTaps) {
        const std::size_t now = taps - k < kTaps ? taps - k : kTaps;
        add_of_taps[now - 1][k > 0]({.x = x + first * step + k * distance,
                                     .step = step,
                                     .frames = frames - first < kFrames ? frames - first : kFrames,
                                     .count = count,
                                     .distance = distance,
                                     .weight = weight + k * count,
                                     .bias = bias,
                                     .y = y + first * count});
      }
    }
  }

 private:
  struct Sums {
    const float* x;
    std::size_t step, frames, count, distance;
    const float *weight, *bias;
    float* y;
  };
  using Add = void (*)(const Sums& sums);

  // Starts from the bias, or goes on from y.
  template <std::size_t Taps, bool GoesOn>
  static __attribute__((noinline)) void add(const Sums& sums) {
    const auto whole = [](const float* from) { return load<L>(from); };
    std::size_t i = 0;
    for (; i + kVectors * L <= sums.count; i += kVectors * L) {
      add_features<Taps, kVectors, GoesOn>(sums, i, whole, store<L, float>);
    }
    for (; i + L <= sums.count; i += L) add_features<Taps, 1, GoesOn>(sums, i, whole, store<L, float>);
    if (const std::size_t rest = sums.count - i; rest > 0) {
      add_features<Taps, 1, GoesOn>(
          sums, i, [rest](const float* from) { return load_first<L>(from, rest, 0.0f); },
          [rest](float* to, V v) { store_first<L>(to, rest, v); });
    }
  }

  template <std::size_t Taps, std::size_t Vectors, bool GoesOn, class Load, class Store>
  static MERIDANE_INLINE void add_features(const Sums& sums, std::size_t first, Load load, Store store) {
    V weight[Taps][Vectors], bias[Vectors];
    MERIDANE_UNROLL
    for (std::size_t v = 0; v < Vectors; ++v) {
      bias[v] = load(sums.bias + first + v * L);
      MERIDANE_UNROLL
      for (std::size_t k = 0; k < Taps; ++k) weight[k][v] = load(sums.weight + k * sums.count + first + v * L);
    }
    const float* x = sums.x + first;
    float* y = sums.y + first;
    const std::size_t step = sums.step, count = sums.count, distance = sums.distance;
    for (std::size_t t = 0; t < sums.frames; ++t) {
      MERIDANE_UNROLL
      for (std::size_t v = 0; v < Vectors; ++v) {
        V sum = GoesOn ? load(y + v * L) : bias[v];
        MERIDANE_UNROLL
        for (std::size_t k = 0; k < Taps; ++k) sum += weight[k][v] * load(x + k * distance + v * L);
        store(y + v * L, sum);
      }
      x += step;
      y += count;
    }
  }
};

}  // namespace
}  // namespace meridane
