#include "feature_extractor/feature_extractor.h"

namespace sonivo {

FeatureExtractor::FeatureExtractor(const FeatureOptions& options) : FeatureExtractorBase(options), fbank_(options) {}

void FeatureExtractor::compute(FrameData& frames, std::vector<float>& out) {
  const bool raw_energy = options().use_energy && options().raw_energy;
  frames.extract(frame_, raw_energy ? &raw_log_energy_ : nullptr);
  frame_.resize(fbank_.padded_size());
  fbank_.compute(out, frame_, raw_log_energy_);
}

}  // namespace sonivo
