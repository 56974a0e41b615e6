#pragma once

#include <memory>
#include <vector>

#include "e2easr_model/base.h"
#include "feature_extractor/feature_extractor.h"
#include "feature_extractor/frame_data.h"
#include "feature_extractor/input.h"

namespace sonivo::e2e {

/// Hands another source's samples on and keeps a copy of them.
class InputSampleWrapper : public Input<short> {
 public:
  explicit InputSampleWrapper(std::shared_ptr<Input<short>> input) : input_(std::move(input)) {}

  int data(std::vector<short>& out, int require, bool trancate) override;
  bool end() override { return input_->end(); }

  /// What was read since the last clear().
  const std::vector<short>& samples() const { return samples_; }
  void clear() { samples_.clear(); }

 private:
  std::shared_ptr<Input<short>> input_;
  std::vector<short> samples_;
};

/// A running stream of frames, with or without feature extraction.
class FEStream {
 public:
  /// Of feature vectors.
  FEStream(const FeatureOptions& options, std::shared_ptr<FeatureExtractorBase> extractor,
           std::shared_ptr<Input<short>> input);
  /// Of samples.
  FEStream(const FeatureOptions& options, std::shared_ptr<InputSampleWrapper> input);

  /// Goes to the next frame; waits for it where the source does.
  bool has_next() { return frames_.has_next(); }
  /// The features of the frame; of a stream of samples those that were read since the frame before, as they are.
  void next(std::vector<float>& frame);

 private:
  std::shared_ptr<FeatureExtractorBase> extractor_;
  std::shared_ptr<InputSampleWrapper> samples_;  // without an extractor
  FrameData frames_;
};

/// The options of feature extraction and what they make of a source of samples.
class FEManager : public Component {
 public:
  FEManager();

  /// "特徴量分析方式\"%s\"は未実装" for a `feature-extractor-type` that isn't there.
  std::shared_ptr<FEStream> open_stream(std::shared_ptr<Input<short>> input) const;

  /// What the variables say.
  FeatureOptions options() const;
};

}  // namespace sonivo::e2e
