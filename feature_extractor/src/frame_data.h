#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "feature_extractor/dither.h"
#include "feature_extractor/input.h"
#include "feature_extractor/options.h"

namespace sonivo {

/// Cuts a source of samples into overlapping frames: frame k holds the samples from k * shift on. A rest that fills no
/// frame is left. How the source cuts its answers makes no difference.
class FrameData {
 public:
  /// Throws std::runtime_error for sizes out of bounds (feature_extractor/frame_sizes.h) and for a window-type that
  /// does not exist.
  FrameData(const FeatureOptions& options, std::shared_ptr<Input<short>> input);

  /// Goes to the next frame, waiting for its samples where the source does. False where the source ends before it; the
  /// frame then stays the last one. Throws std::runtime_error unless snip-edges.
  bool has_next();

  /// The frame as it goes into the transform: dithered, without its mean, pre-emphasised, windowed. log_energy, unless
  /// null, becomes the logarithm of its energy before pre-emphasis and window. Throws std::runtime_error where there is
  /// no frame. A second call for the same frame brings other dither.
  void extract(std::vector<float>& frame, float* log_energy);

  int frame_length_samples() const { return static_cast<int>(length_); }
  int frame_shift_samples() const { return static_cast<int>(shift_); }
  std::int64_t frame_count() const { return frame_count_; }

 private:
  std::size_t available() const { return buffer_.size() - start_; }
  bool fill(std::size_t wanted);
  void drop(std::size_t count);
  void emphasise(std::vector<float>& frame);

  const FeatureOptions options_;
  const std::shared_ptr<Input<short>> input_;
  const std::size_t length_;
  const std::size_t shift_;
  const std::size_t group_;  // samples of 10 ms
  const std::vector<float> window_;
  std::vector<short> buffer_;
  std::size_t start_ = 0;  // of the frame in buffer_
  std::int64_t frame_count_ = 0;
  Dither dither_;
  std::vector<float> unemphasised_;
};

}  // namespace sonivo
