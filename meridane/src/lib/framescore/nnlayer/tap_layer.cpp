#include "lib/framescore/nnlayer/tap_layer.h"

#include <algorithm>
#include <limits>

#include "meridane/error.h"

namespace meridane {
namespace {

// Zeros, kept frames and outputs of padding have a size that only the record's numbers give: 16 MB of each at most,
// which is more than 8000 frames of 512 values.
constexpr Eigen::Index kMostTapFloats = Eigen::Index{1} << 22;

// A step that gives more frames than it's given gives at most so many for each frame of the stream: samples of 48 kHz
// for frames of 20 ms are 960. As if there had been some frames before the stream, for padding.
constexpr std::uint64_t kMostFramesOfOne = 1024;
constexpr std::uint64_t kFramesBefore = 8;

}  // namespace

void TapLayer::parameters(ParameterVisitor& visitor) {
  visitor.flag("groups", groups_, false);
  visitor.flag("causal", causal_, false);
  visitor.whole("pad", pad_, 0, 0);
  visitor.whole("dilation", dilation_, 1, 1);
  visitor.whole("stride", stride_, 1, 1);
  visitor.whole("kernel", kernel_, 0, 1);
  visitor.weight("weight", weight_);
  visitor.vector("bias", bias_);
  visitor.implied("input_size", input_rows());
}

void TapLayer::loaded() {
  if (weight_.rows() % kernel_ != 0) raise_invalid_format();
  if (bias_.size() != output_rows()) raise_invalid_format();
  const Eigen::Index most_frames =
      std::min<Eigen::Index>(kMostTapFloats / std::max(input_rows(), output_rows()), std::numeric_limits<int>::max());
  if (kernel_ > 1 && dilation_ > (most_frames - 1) / (kernel_ - 1)) raise_incorrect("dilation");
  if (!causal_ && pad_ > most_frames) raise_incorrect("pad");
  if (stride_ > most_frames) raise_incorrect("stride");
  if (groups_) {
    weight_.transpose();
  } else {
    pack_taps();
  }
}

const float* TapLayer::grouped_taps(std::uint64_t t) const {
  return weight_.column(static_cast<Eigen::Index>(t % static_cast<std::uint64_t>(weight_.cols())));
}

void TapLayer::expect_frames(const LayerInputs& inputs, Eigen::Index frames) const {
  const std::uint64_t most = kMostFramesOfOne * (inputs.fed() + kFramesBefore);
  if (frames <= inputs[0]->content().cols() || static_cast<std::uint64_t>(frames) <= most) return;
  raise("Layer %s makes too many frames: %lld, where %llu have gone into the network", id().c_str(),
        static_cast<long long>(frames), static_cast<unsigned long long>(inputs.fed()));
}

void TapLayer::raise_rows(const Minibatch& input) const {
  raise<DimensionMismatchError>("Dimension mismatch in layer %s: %d vs %d", id().c_str(),
                                static_cast<int>(input.content().rows()), static_cast<int>(input_rows()));
}

}  // namespace meridane
