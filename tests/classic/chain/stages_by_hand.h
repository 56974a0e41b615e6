#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "classic/beam_forming_key_cancel.h"
#include "classic/fixed_beamformer.h"
#include "classic/input_filter.h"
#include "classic/key_cancel.h"
#include "classic/key_reduction.h"
#include "classic/noise_reduction.h"
#include "classic/param_blobs.h"

/// The frame functions of both chains, put together from their stages one call at a time.
namespace sonivo::classic::test {

using Frame = std::array<float, kHop>;
using Signal = std::vector<float>;

/// Which stages are active; the one-microphone chain has no beams.
struct Active {
  bool beam = true;
  bool key = true;
  bool noise = true;
};

class KeyCancelByHand {
 public:
  explicit KeyCancelByHand(const KeyCancelParam& param)
      : filter_(param.head.ain), key_(param.pulse), noise_(param) {}  // param outlives this object

  Active active;

  Frame process(const Frame& x) {
    if (x[kHop - 1] == 0.0f) return x;
    if (!active.key && !active.noise) return x;
    Frame a = x;
    filter_.process(a);
    Frame b = a;
    if (active.key) key_.process({a}, noise_.voice(), {b});
    if (!active.noise) return b;
    Frame y{};
    noise_.process(b, a, y);
    return y;
  }

  bool voice() const { return noise_.voice(); }
  const DetectionStatistics& statistics() const { return key_.statistics(); }

 private:
  InputFilter filter_;
  KeyReduction<1> key_;
  NoiseReduction noise_;
};

class BeamFormingByHand {
 public:
  explicit BeamFormingByHand(const BeamFormingKeyCancelParam& param)
      : filter0_(param.head.ain), filter1_(param.head.ain), beams_(param), key_(param.pulse), noise_(param) {}

  Active active;

  Frame process(const Frame& x0, const Frame& x1) {
    const auto zero = [](float x) { return x == 0.0f; };
    if (std::all_of(x0.begin(), x0.end(), zero) && std::all_of(x1.begin(), x1.end(), zero)) return x0;
    Frame a0 = x0;
    Frame a1 = x1;
    if (active.key || active.noise) {
      filter0_.process(a0);
      filter1_.process(a1);
    }
    Frame beam0 = x0;
    Frame beam1{};
    if (active.beam) beams_.process(a0, a1, beam0, beam1);
    Frame b0 = beam0;
    Frame b1 = beam1;
    if (active.key) key_.process({beam0, beam1}, noise_.voice(), {b0, b1});
    if (!active.noise) return b0;
    Frame y{};
    noise_.process({b0, b1}, {beam0, beam1}, y);
    return y;
  }

  bool voice() const { return noise_.voice(); }
  const DetectionStatistics& statistics() const { return key_.statistics(); }

 private:
  InputFilter filter0_;
  InputFilter filter1_;
  FixedBeamformer beams_;
  KeyReduction<kBeams> key_;
  TwoBeamNoiseReduction noise_;
};

/// Frame number f of a signal, on the scale of 16-bit samples.
inline Frame frame_of(const Signal& signal, std::size_t f) {
  Frame frame;
  for (std::size_t i = 0; i < kHop; ++i) frame[i] = signal[f * kHop + i] * 32768.0f;
  return frame;
}

inline void append(Signal& signal, const Frame& frame) {
  for (const float x : frame) signal.push_back(x / 32768.0f);
}

/// Whole frames of what a channel of the chain hears.
inline Signal through(KeyCancelByHand& stages, const std::vector<Signal>& in, std::size_t channel) {
  Signal out;
  for (std::size_t f = 0; f < in[channel].size() / kHop; ++f) append(out, stages.process(frame_of(in[channel], f)));
  return out;
}
inline Signal through(BeamFormingByHand& stages, const std::vector<Signal>& in, std::size_t = 0) {
  Signal out;
  for (std::size_t f = 0; f < in[0].size() / kHop; ++f) {
    append(out, stages.process(frame_of(in[0], f), frame_of(in[1], f)));
  }
  return out;
}

inline void expect_equal(const Signal& heard, const Signal& expected) {
  ASSERT_EQ(heard.size(), expected.size());
  for (std::size_t i = 0; i < heard.size(); ++i) {
    ASSERT_EQ(heard[i], expected[i]) << "frame " << i / kHop << ", sample " << i % kHop;
  }
}

inline void activate(CKeyCancel& chain, const Active& active) {
  chain.SetKeyReductionActive(active.key);
  chain.SetNoiseReductionActive(active.noise);
}
inline void activate(CBeamFormingKeyCancel& chain, const Active& active) {
  chain.SetBeamFormingActive(active.beam);
  chain.SetKeyReductionActive(active.key);
  chain.SetNoiseReductionActive(active.noise);
}

}  // namespace sonivo::classic::test
