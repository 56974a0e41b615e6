#include "lib/framescore/nnlayer/rel_pos_enc.h"

#include <algorithm>

#include "lib/framescore/nnlayer/position_table.h"
#include "lib/framescore/nnlayer/positioned_frames.h"
#include "meridane/error.h"

namespace meridane {
namespace {

// The size of the table is what the record's numbers say: 256 MB in each direction at most.
constexpr std::int32_t kMostFrames = std::int32_t{1} << 20;
constexpr Eigen::Index kMostTableFloats = Eigen::Index{1} << 26;

struct RelPositionalEncodingLayerState : NNLayerState {
  std::shared_ptr<NNLayerState> clone() const override {
    return std::make_shared<RelPositionalEncodingLayerState>(*this);
  }
  std::uint64_t bytes() const override { return table.bytes(); }

  bool started = false;
  PositionTable table;
  Minibatch::Shape shape;  ///< of the latest result; kept for its memory
};

}  // namespace

void RelPositionalEncodingLayer::parameters(ParameterVisitor& visitor) {
  visitor.whole("cache_frame", cache_frame_, 0, 0);
  visitor.whole("reserve", reserve_, 0, 0);
}

void RelPositionalEncodingLayer::loaded() {
  if (cache_frame_ > kMostFrames) raise_incorrect("cache_frame");
  if (reserve_ > kMostFrames) raise_incorrect("reserve");
}

std::shared_ptr<NNLayerState> RelPositionalEncodingLayer::create_state() const {
  return std::make_shared<RelPositionalEncodingLayerState>();
}

MinibatchPtr RelPositionalEncodingLayer::forward(const LayerInputs& inputs,
                                                 const std::shared_ptr<NNLayerState>& state) const {
  const Matrix& x = only_input(inputs)->content();
  auto* const stream = dynamic_cast<RelPositionalEncodingLayerState*>(state.get());
  if (stream == nullptr) raise("No state for layer %s", id().c_str());
  const Eigen::Index d = x.rows(), T = x.cols();
  if (T == 0) return inputs.result(d, 0);
  const Eigen::Index L = T + (stream->started ? cache_frame_ : 0);
  const PositionedFrames form(d, T, (L + T - 1) / T);
  const Eigen::Index positions = form.distances() + reserve_;
  if (d * positions > kMostTableFloats) {
    raise("Layer %s would need a table of %lld positions for frames of %lld values", id().c_str(),
          static_cast<long long>(positions), static_cast<long long>(d));
  }
  stream->table.cover(d, form.distances(), reserve_);
  form.write_shape(stream->shape);
  MinibatchPtr y = inputs.result(stream->shape, T);
  float* const to = y->content().data();
  for (Eigen::Index t = 0; t < T; ++t) std::copy_n(x.col(t).data(), d, to + t * form.stride());
  for (Eigen::Index n = 0; n < form.distances(); ++n) {
    std::copy_n(stream->table.at(n), d, to + form.ahead(n));
    std::copy_n(stream->table.at(-n), d, to + form.behind(n));
  }
  stream->started = true;
  return y;
}

}  // namespace meridane
