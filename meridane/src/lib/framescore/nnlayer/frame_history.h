#pragma once

#include <algorithm>
#include <vector>

#include "lib/framescore/nnlayer/held_bytes.h"
#include "meridane/matrix.h"

namespace meridane {

/// The newest frames of a stream, one behind the other in memory. Frames move to the front of the memory only when it
/// is used up, so that a long history and short chunks don't cost a copy of the history each time.
class FrameHistory {
 public:
  explicit FrameHistory(Eigen::Index rows) : rows_(rows) {}

  Eigen::Index rows() const { return rows_; }
  Eigen::Index frames() const { return frames_; }
  std::uint64_t bytes() const { return held_bytes(memory_); }
  const float* data() const { return memory_.data() + first_; }  ///< the oldest frame; valid until the next change

  /// Appends a chunk. Gives where the window begins: `before` frames of zeros, the history, the chunk, `after` frames
  /// of zeros. It's valid until the next change.
  const float* append(const Matrix& chunk, Eigen::Index before, Eigen::Index after) {
    return append(chunk.data(), chunk.cols(), before, after);
  }
  const float* append(const float* chunk, Eigen::Index count, Eigen::Index before, Eigen::Index after) {
    const Eigen::Index needed = frames_ + count + after;
    if (first_ < before * rows_ || first_ + needed * rows_ > static_cast<Eigen::Index>(memory_.size())) {
      // Twice the window, so that the next move is far away.
      const auto room = static_cast<std::size_t>(2 * (before + needed) * rows_);
      if (memory_.size() < room) memory_.resize(room);
      move_to(before * rows_);
    }
    float* const end = std::copy_n(chunk, count * rows_, memory_.data() + first_ + frames_ * rows_);
    std::fill_n(end, after * rows_, 0.0f);
    std::fill_n(memory_.data() + first_ - before * rows_, before * rows_, 0.0f);
    frames_ += count;
    return memory_.data() + first_ - before * rows_;
  }

  /// Forgets all but the newest `most` frames.
  void keep(Eigen::Index most) {
    const Eigen::Index gone = std::max<Eigen::Index>(frames_ - most, 0);
    first_ += gone * rows_;
    frames_ -= gone;
  }

 private:
  void move_to(Eigen::Index to) {
    const auto from = memory_.begin() + first_;
    if (to < first_) {
      std::copy(from, from + frames_ * rows_, memory_.begin() + to);
    } else {
      std::copy_backward(from, from + frames_ * rows_, memory_.begin() + to + frames_ * rows_);
    }
    first_ = to;
  }

  Eigen::Index rows_;
  std::vector<float> memory_;
  Eigen::Index first_ = 0;  ///< place of the oldest frame
  Eigen::Index frames_ = 0;
};

}  // namespace meridane
