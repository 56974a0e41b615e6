#include "classic/pulse_noise.h"

#include <algorithm>
#include <cmath>

namespace sonivo::classic {

namespace {

constexpr float kBlobLevel = 1000.0f;  ///< of the levels of a blob, which are relative to this amplitude

/// As a 16-bit sample: cut towards 0; what is beyond the range saturates, what is no number is silent.
float sample16(float x) {
  if (std::isnan(x)) return 0.0f;
  return std::trunc(std::clamp(x, -32768.0f, 32767.0f));
}

}  // namespace

PulseNoise::PulseNoise(const PulsePath& param)
    : param_(param.ngen_f_pulse),
      begin_(param.nbin_pulse_param_tbl[0]),
      end_(param.nbin_pulse_param_tbl[param_.prm_nbin]),
      bins_(param.syk_pulse),
      analysis_(param.ana_pulse) {
  for (std::size_t p = 0; p < param_.prm_nbin; ++p) {
    const std::size_t first = param.nbin_pulse_param_tbl[p], last = param.nbin_pulse_param_tbl[p + 1];
    std::fill(target_gn_ + first, target_gn_ + last, param_.target_gn[p]);
    std::fill(eq_ + first, eq_ + last, param_.eq[p]);
  }
  for (unsigned bits = 0; bits < samples_of_bits_.size(); ++bits) {
    for (unsigned i = 0; i < 4; ++i) {
      samples_of_bits_[bits][i] = sample16((bits >> (3 - i) & 1u) != 0 ? param_.lvl : -param_.lvl);
    }
  }
  reset();
}

void PulseNoise::reset() {
  analysis_.reset();
  generator_.reset();
  Q_ = {};
  frames_ = 0;
}

void PulseNoise::generate(std::span<float> samples) {
  std::uint64_t bits = generator_.next64();
  for (std::size_t i = 0; i < samples.size(); i += 4, bits <<= 4) {
    std::copy_n(samples_of_bits_[bits >> 60].begin(), 4, samples.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

void PulseNoise::process(std::span<const float> g, std::span<const float> Nl) {
  if (frames_ < param_.init_wait) {
    ++frames_;
    return;
  }
  float samples[kPulseHop];
  generate(samples);
  analysis_.process(samples, Q_);

  float a[kMaxBands];  // bands of no prm band stay as they are
  float a_of_bin[kPulseFloats];
  std::fill(std::begin(a), std::end(a), 1.0f);
  for (std::size_t j = begin_; j < end_; ++j) {
    const float top_up = std::max(0.0f, target_gn_[j] - g[j]) * Nl[j] * eq_[j];
    a[j] = std::max(param_.min_nl[j], top_up) / kBlobLevel;
  }
  bins_.expand(a, 1.0f, a_of_bin);
  const auto Q = floats(Q_);
  for (std::size_t i = 0; i < kPulseFloats; ++i) Q[i] *= a_of_bin[i];
}

}  // namespace sonivo::classic
