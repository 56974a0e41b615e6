#pragma once

#include <cstddef>
#include <vector>

#include "feature_extractor/fbank_extractor.h"
#include "feature_extractor/frame_data.h"
#include "feature_extractor/options.h"

namespace sonivo {

/// Turns frames into feature vectors.
class FeatureExtractorBase {
 public:
  explicit FeatureExtractorBase(const FeatureOptions& options) : options_(options) {}
  virtual ~FeatureExtractorBase() = default;

  /// The feature vector of the current frame. Throws std::runtime_error.
  virtual void compute(FrameData& frames, std::vector<float>& out) = 0;

  const FeatureOptions& options() const { return options_; }

 private:
  const FeatureOptions options_;
};

/// Mel filter-bank features, FbankExtractor over the frames of FrameData.
class FeatureExtractor : public FeatureExtractorBase {
 public:
  /// Throws std::runtime_error for sizes out of bounds.
  explicit FeatureExtractor(const FeatureOptions& options);

  /// `frames` must have been made with the same options. Options of the mel bins that contradict each other are found
  /// at the first call.
  void compute(FrameData& frames, std::vector<float>& out) override;

 private:
  FbankExtractor fbank_;
  std::vector<float> frame_;
  float raw_log_energy_ = 0.0f;  // of the last frame
};

}  // namespace sonivo
