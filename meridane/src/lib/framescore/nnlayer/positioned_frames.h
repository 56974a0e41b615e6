#pragma once

#include "meridane/minibatch.h"

namespace meridane {

/// How frames of d rows and the encodings of the distances between them travel in one minibatch of as many frames. Its
/// shape is {d, 1 + 2 share}: frame t is x(t), then the encodings of the distances t share to t share + share - 1, then
/// those of the same distances backwards.
class PositionedFrames {
 public:
  PositionedFrames(Eigen::Index rows, Eigen::Index frames, Eigen::Index share)
      : rows_(rows), frames_(frames), share_(share) {}

  /// For a minibatch that is_packed().
  explicit PositionedFrames(const Minibatch& packed)
      : PositionedFrames(static_cast<Eigen::Index>(packed.shape()[0]), packed.content().cols(),
                         static_cast<Eigen::Index>(packed.shape()[1] / 2)) {}

  /// Whether there are encodings beside frames of that many rows. The frames themselves may have any shape.
  static bool is_packed(const Minibatch& x, Eigen::Index rows) {
    const Minibatch::Shape& shape = x.shape();
    const auto d = static_cast<std::uint64_t>(rows), all = static_cast<std::uint64_t>(x.content().rows());
    return shape.size() == 2 && shape[0] == d && shape[1] >= 3 && shape[1] % 2 == 1 && all % shape[1] == 0 &&
           all / shape[1] == d;
  }

  void write_shape(Minibatch::Shape& shape) const {
    shape.assign({static_cast<std::uint64_t>(rows_), static_cast<std::uint64_t>(1 + 2 * share_)});
  }
  Eigen::Index rows() const { return rows_; }  ///< d
  Eigen::Index frames() const { return frames_; }
  /// From a frame to the next.
  Eigen::Index stride() const { return rows_ * (1 + 2 * share_); }
  /// Distances that are there, in either direction, 0 included.
  Eigen::Index distances() const { return share_ * frames_; }
  /// Where the encodings of distance n and of distance -n begin, n from 0 on; 0 stands in both halves.
  Eigen::Index ahead(Eigen::Index n) const { return n / share_ * stride() + (1 + n % share_) * rows_; }
  Eigen::Index behind(Eigen::Index n) const { return ahead(n) + share_ * rows_; }

 private:
  Eigen::Index rows_, frames_, share_;
};

}  // namespace meridane
