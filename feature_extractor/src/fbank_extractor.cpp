#include "feature_extractor/fbank_extractor.h"

#include <cblas.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>

#include "feature_extractor/floored_log.h"
#include "feature_extractor/frame_sizes.h"

namespace sonivo {

FbankExtractor::FbankExtractor(const FeatureOptions& options)
    : options_(options),
      fft_(static_cast<std::size_t>(padded_frame_samples(options))),
      log_energy_floor_(options.energy_floor > 0.0f ? std::log(options.energy_floor)
                                                    : -std::numeric_limits<float>::infinity()) {}

void FbankExtractor::compute(std::vector<float>& out, std::vector<float>& frame, float raw_log_energy) {
  assert(frame.size() == padded_size());
  const MelBanks& mel = mel_banks();
  float log_energy = raw_log_energy;
  if (options_.use_energy && !options_.raw_energy) {
    log_energy = floored_log(cblas_sdot(static_cast<int>(frame.size()), frame.data(), 1, frame.data(), 1));
  }
  spectrum(frame);

  const bool energy_first = options_.use_energy && !options_.htk_compat;
  out.resize(mel.banks().size() + (options_.use_energy ? 1 : 0));
  float* const bins = out.data() + (energy_first ? 1 : 0);
  mel.compute(frame.data(), bins);
  if (options_.use_log_fbank) std::transform(bins, bins + mel.banks().size(), bins, floored_log);
  if (options_.use_energy) (energy_first ? out.front() : out.back()) = std::max(log_energy, log_energy_floor_);
}

const MelBanks& FbankExtractor::mel_banks() {
  const float warp = options_.vtln_warp;
  const auto found = mel_banks_.find(warp);
  return found != mel_banks_.end() ? found->second
                                   : mel_banks_.emplace(warp, MelBanks(options_, padded_size(), warp)).first->second;
}

// Power, or magnitude, of bins 0 to N / 2 at the front of `frame`.
void FbankExtractor::spectrum(std::vector<float>& frame) {
  fft_.forward(frame);
  const std::size_t last = frame.size() / 2;
  const float nyquist = frame[1];
  frame[0] *= frame[0];
  for (std::size_t k = 1; k < last; ++k) frame[k] = frame[2 * k] * frame[2 * k] + frame[2 * k + 1] * frame[2 * k + 1];
  frame[last] = nyquist * nyquist;
  if (options_.use_power) return;
  for (std::size_t k = 0; k <= last; ++k) frame[k] = std::pow(frame[k], 0.5f);
}

}  // namespace sonivo
