#pragma once

#include "feature_extractor/options.h"

namespace sonivo {

/// The longest frame and the largest shift, in samples. The shortest frame has 2 samples, the smallest shift is 1.
inline constexpr int kMaxFrameSamples = 1 << 20;

/// (int)(sample-frequency * 0.001 * milliseconds). Both throw std::runtime_error outside the bounds.
int frame_length_samples(const FeatureOptions& options);
int frame_shift_samples(const FeatureOptions& options);

/// The frame length, or with round-to-power-of-two the power of two at or above it.
int padded_frame_samples(const FeatureOptions& options);

}  // namespace sonivo
