#include "feature_extractor/frame_sizes.h"

#include <bit>
#include <sstream>
#include <stdexcept>

namespace sonivo {
namespace {

int samples(const char* name, float sample_frequency, float milliseconds, int least) {
  const double count = static_cast<double>(sample_frequency) * 0.001 * static_cast<double>(milliseconds);
  if (sample_frequency > 0.0f && count >= least && count < kMaxFrameSamples + 1.0) return static_cast<int>(count);
  std::ostringstream text;
  text << "Error: " << name << " of " << milliseconds << " ms at " << sample_frequency << " Hz gives " << count
       << " samples, not " << least << " to " << kMaxFrameSamples;
  throw std::runtime_error(text.str());
}

}  // namespace

int frame_length_samples(const FeatureOptions& options) {
  return samples("frame-length", options.sample_frequency, options.frame_length, 2);
}

int frame_shift_samples(const FeatureOptions& options) {
  return samples("frame-shift", options.sample_frequency, options.frame_shift, 1);
}

int padded_frame_samples(const FeatureOptions& options) {
  const int length = frame_length_samples(options);
  return options.round_to_power_of_two ? static_cast<int>(std::bit_ceil(static_cast<unsigned>(length))) : length;
}

}  // namespace sonivo
