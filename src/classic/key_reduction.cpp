#include "classic/key_reduction.h"

#include <algorithm>
#include <iterator>

#include "classic/band_level.h"

namespace sonivo::classic {

namespace {

template <std::size_t Beams>
std::array<SpectrumDelay, Beams> delays(const DelayBlock& param) {
  if constexpr (Beams == 1) {
    return {SpectrumDelay(param)};
  } else {
    return {SpectrumDelay(param), SpectrumDelay(param)};
  }
}

/// The next sub-block of each beam.
template <typename Spans>
Spans sub_spans(const Spans& frame, std::size_t offset) {
  Spans spans;
  for (std::size_t i = 0; i < frame.size(); ++i) spans[i] = frame[i].subspan(offset, kPulseHop);
  return spans;
}

}  // namespace

template <std::size_t Beams>
KeyReduction<Beams>::KeyReduction(const PulsePath& param)
    : param_(param),
      analysis_(param.ana_pulse),
      level_(param.pwr_pulse),
      noise_level_(param.nl_pulse),
      diff_power_(param.diff_power),
      suppressor_(param),
      bins_(param.syk_pulse),
      delay_(delays<Beams>(param.pulse_sup_delay)),
      add_delay_(param.pulse_sup_add_delay),
      noise_(param),
      synthesis_(param.syn_pulse) {
  reset();
}

template <std::size_t Beams>
void KeyReduction<Beams>::reset() {
  analysis_.reset();
  level_.reset();
  noise_level_.reset();
  diff_power_.reset();
  suppressor_.reset();
  for (SpectrumDelay& delay : delay_) delay.reset();
  add_delay_.reset();
  noise_.reset();
  synthesis_.reset();
  input_ = {};
  gain_ = {};
  statistics_ = {};
  statistics_.groups = param_.pulse_sup.npm_num;
}

template <std::size_t Beams>
void KeyReduction<Beams>::process(const std::array<std::span<const float>, Beams>& in, bool voice,
                                  const std::array<std::span<float>, Beams>& out) {
  clear_statistics();
  for (std::size_t offset = 0; offset < kHop; offset += kPulseHop) {
    sub_block(sub_spans(in, offset), voice, sub_spans(out, offset));
  }
}

template <std::size_t Beams>
void KeyReduction<Beams>::clear_statistics() {
  std::fill(std::begin(statistics_.count), std::end(statistics_.count), 0);
  std::fill(std::begin(statistics_.peak), std::end(statistics_.peak), 0.0f);
}

template <std::size_t Beams>
void KeyReduction<Beams>::sub_block(const std::array<std::span<const float>, Beams>& in, bool voice,
                                    const std::array<std::span<float>, Beams>& out) {
  float X[kMaxBands];
  float R[kMaxBands];
  Spectra D;
  analyse(in);
  band_level(param_.syk_pulse, input_[0], X);
  level_.process(X);
  noise_level_.process(level_.level(), voice);
  diff_power_.process(X, R);
  suppressor_.process(X, R);
  count_detections();
  bins_.expand(suppressor_.gain().data(), 0.0f, gain_.data());
  delay_and_gain(D);
  fill(D);
  synthesise(D, out);
}

template <std::size_t Beams>
void KeyReduction<Beams>::analyse(const std::array<std::span<const float>, Beams>& in) {
  if constexpr (Beams == 1) {
    analysis_.process(in[0], input_[0]);
  } else {
    analysis_.process(in[0], in[1], input_[0], input_[1]);
  }
}

template <std::size_t Beams>
void KeyReduction<Beams>::count_detections() {
  const std::span<const float> prod = suppressor_.products();
  for (std::size_t i = 0; i < prod.size(); ++i) {
    if (prod[i] > param_.pulse_sup.min_npm_det[i]) ++statistics_.count[i];
    statistics_.peak[i] = std::max(statistics_.peak[i], prod[i]);
  }
}

template <std::size_t Beams>
void KeyReduction<Beams>::delay_and_gain(Spectra& D) {
  for (std::size_t i = 0; i < Beams; ++i) {
    const auto delayed = floats(D[i]);
    delay_[i].process(floats(input_[i]), delayed);
    for (std::size_t k = 0; k < kPulseFloats; ++k) delayed[k] *= gain_[k];
  }
}

/// What the gain took away beyond a threshold comes back from an older spectrum of the first beam, together with noise.
template <std::size_t Beams>
void KeyReduction<Beams>::fill(Spectra& D) {
  float E[kPulseFloats];
  add_delay_.process(floats(D[0]), E);
  noise_.process(suppressor_.gain(), noise_level_.level());
  const auto Q = floats(noise_.spectrum());
  const float gn_th = param_.pulse_sup_add_gn_th;
  for (std::size_t k = 0; k < kPulseFloats; ++k) {
    E[k] = std::max(0.0f, gn_th - gain_[k]) * E[k] + Q[k];
  }
  for (PulseSpectrum& beam : D) {
    const auto filled = floats(beam);
    for (std::size_t k = 0; k < kPulseFloats; ++k) filled[k] += E[k];
  }
}

template <std::size_t Beams>
void KeyReduction<Beams>::synthesise(const Spectra& D, const std::array<std::span<float>, Beams>& out) {
  if constexpr (Beams == 1) {
    synthesis_.process(D[0], out[0]);
  } else {
    synthesis_.process(D[0], D[1], out[0], out[1]);
  }
}

template class KeyReduction<1>;
template class KeyReduction<2>;

}  // namespace sonivo::classic
