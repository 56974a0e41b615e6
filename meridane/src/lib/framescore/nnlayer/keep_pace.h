#pragma once

#include <optional>

#include "lib/framescore/nnlayer/concat.h"
#include "lib/framescore/nnlayer/frame_history.h"
#include "lib/framescore/nnlayer/merge.h"
#include "meridane/error.h"

namespace meridane {

/// The frames of several streams that wait for each other.
class KeepPaceState : public NNLayerState {
 public:
  std::shared_ptr<NNLayerState> clone() const override;
  std::uint64_t bytes() const override;

  /// Whether the inputs are as many as before and their frames have the shapes of those that wait.
  bool fits(const LayerInputs& inputs) const;
  /// The first F frames of each stream with its new ones, F being as many as all of them have. Nothing has changed yet.
  const LayerInputs& meet(const LayerInputs& inputs);
  /// Lets the new frames wait, and those that met go. Of the same inputs.
  void advance(const LayerInputs& inputs);

 private:
  struct Stream {
    std::optional<Minibatch::Shape> shape;  ///< none before the first frames
    FrameHistory waiting{0};
  };

  MinibatchPtr head(std::size_t i, const MinibatchPtr& input);

  std::vector<Stream> streams_;
  Eigen::Index met_ = 0;
  // Kept for their memory:
  LayerInputs heads_;
  std::vector<MinibatchPtr> assembled_;
};

/// A layer that joins streams, for those that deliver different numbers of frames in a call: what comes early waits in
/// the state. Each call joins the first F frames that wait, F being the smallest number that does in any stream; that
/// may be none. Nothing flushes what a longer stream has left at its end. Works with a state only; a call that fails
/// leaves what waits as it was.
/// Record and attributes: those of the plain layer.
template <class Plain>
class KeepPace : public Plain {
 public:
  using Plain::Plain;

  std::shared_ptr<NNLayerState> create_state() const override { return std::make_shared<KeepPaceState>(); }

  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override {
    this->expect_inputs(inputs);
    auto* const waiting = dynamic_cast<KeepPaceState*>(state.get());
    if (waiting == nullptr) raise("No state for layer %s", this->id().c_str());
    if (!waiting->fits(inputs)) this->raise_dimension_mismatch();
    MinibatchPtr y = Plain::forward(waiting->meet(inputs));
    waiting->advance(inputs);
    return y;
  }
  MinibatchPtr forward(const LayerInputs&) const override { raise("NOT IMPLEMENTED"); }

 protected:
  std::string tag() const override { return "KeepPace" + Plain::tag(); }
};

using KeepPaceConcatLayer = KeepPace<ConcatLayer>;
using KeepPaceMergeLayer = KeepPace<MergeLayer>;

}  // namespace meridane
