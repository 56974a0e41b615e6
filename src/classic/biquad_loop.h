#pragma once

// The cascade of second-order sections, for the sources that hold the kernels. One section waits for its own last
// sample; so all sections work at once, section i one sample behind section i - 1, each in its lane.

#include "classic/kernel_lanes.h"
#include "classic/kernels.h"

namespace sonivo::classic {
namespace {

class Cascade {
 public:
  // As Kernels::biquads.
  static void process(const BiquadLanes& coefficients, std::size_t sections, BiquadState& state, float* signal,
                      std::size_t count) {
    Cascade cascade(coefficients, state);
    const std::size_t behind = sections - 1;  // samples that the last section is late
    std::size_t t = 0;
    const auto some_sections = [&] {
      const std::size_t first = t < count ? 0 : t - count + 1;
      cascade.step<false>(t < count ? signal[t] : 0.0f, static_cast<int>(first), static_cast<int>(t));
    };
    for (; t < behind; ++t) some_sections();
    for (; t < count; ++t) {
      cascade.step<true>(signal[t], 0, 0);
      signal[t - behind] = cascade.output(behind);
    }
    for (; t < count + behind; ++t) {
      some_sections();
      signal[t - behind] = cascade.output(behind);
    }
    cascade.save(state);
  }

 private:
  // Four lanes even where there are wider ones: the way from lane to lane is what each sample waits for.
  static constexpr std::size_t L = 4, kVectors = BiquadLanes::kLanes / L;
  typedef int Mask __attribute__((vector_size(sizeof(int) * L)));

  Vector<L> b0[kVectors], b1[kVectors], b2[kVectors], minus_a1[kVectors], minus_a2[kVectors];
  Vector<L> s0[kVectors], s1[kVectors], y[kVectors];
  Mask lane[kVectors];

  SONIVO_INLINE Cascade(const BiquadLanes& c, const BiquadState& state) {
    for (std::size_t v = 0; v < kVectors; ++v) {
      b0[v] = load<L>(c.b0 + v * L);
      b1[v] = load<L>(c.b1 + v * L);
      b2[v] = load<L>(c.b2 + v * L);
      minus_a1[v] = load<L>(c.minus_a1 + v * L);
      minus_a2[v] = load<L>(c.minus_a2 + v * L);
      s0[v] = load<L>(state.s0 + v * L);
      s1[v] = load<L>(state.s1 + v * L);
      y[v] = Vector<L>{};
      for (std::size_t i = 0; i < L; ++i) lane[v][i] = static_cast<int>(v * L + i);
    }
  }

  // Lane 0 takes x, each further lane what the one before it gave last time. Where all is false, only the lanes from
  // first to last keep their new state.
  template <bool all>
  SONIVO_INLINE void step(float x, int first, int last) {
    Vector<L> before = broadcast<L>(x);
    for (std::size_t v = 0; v < kVectors; ++v) {
      const Vector<L> input = __builtin_shufflevector(before, y[v], 3, 4, 5, 6);
      before = y[v];
      y[v] = b0[v] * input + s0[v];
      const Vector<L> next0 = minus_a1[v] * y[v] + (b1[v] * input + s1[v]);
      const Vector<L> next1 = minus_a2[v] * y[v] + b2[v] * input;
      if constexpr (all) {
        s0[v] = next0;
        s1[v] = next1;
      } else {
        const Mask active = (lane[v] >= first) & (lane[v] <= last);
        s0[v] = active ? next0 : s0[v];
        s1[v] = active ? next1 : s1[v];
      }
    }
  }

  SONIVO_INLINE void save(BiquadState& state) const {
    for (std::size_t v = 0; v < kVectors; ++v) {
      store<L>(state.s0 + v * L, s0[v]);
      store<L>(state.s1 + v * L, s1[v]);
    }
  }

  SONIVO_INLINE float output(std::size_t section) const {
    float lanes[BiquadLanes::kLanes];
    for (std::size_t v = 0; v < kVectors; ++v) store<L>(lanes + v * L, y[v]);
    return lanes[section];
  }
};

}  // namespace
}  // namespace sonivo::classic
