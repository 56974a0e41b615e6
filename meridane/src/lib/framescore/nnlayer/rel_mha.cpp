#include "lib/framescore/nnlayer/rel_mha.h"

#include <algorithm>
#include <vector>

#include "lib/framescore/nnlayer/positioned_frames.h"
#include "lib/framescore/nnlayer/rel_attention.h"
#include "meridane/error.h"

namespace meridane {
namespace {

/// Memory of a thread for what stands between input and output.
struct MHAScratch {
  std::vector<float> q, k, v, positions, p, context;
};

MHAScratch& mha_scratch() {
  thread_local MHAScratch the_scratch;
  return the_scratch;
}

float* resized(std::vector<float>& memory, Eigen::Index size) {
  memory.resize(static_cast<std::size_t>(size));
  return memory.data();
}

}  // namespace

void RelMHALayer::parameters(ParameterVisitor& visitor) {
  visitor.whole("nhead", nhead_, 0, 1);
  visitor.weight("linear_q_weight", query_.weight);
  visitor.vector("linear_q_bias", query_.bias);
  visitor.weight("linear_k_weight", key_.weight);
  visitor.vector("linear_k_bias", key_.bias);
  visitor.weight("linear_v_weight", value_.weight);
  visitor.vector("linear_v_bias", value_.bias);
  visitor.weight("linear_out_weight", out_.weight);
  visitor.vector("linear_out_bias", out_.bias);
  visitor.weight("linear_pos_weight", pos_weight_);
  visitor.vector("pos_bias_u", pos_bias_u_);
  visitor.vector("pos_bias_v", pos_bias_v_);
}

void RelMHALayer::loaded() {
  const Eigen::Index d = rows();
  for (Weight* weight : {&query_.weight, &key_.weight, &value_.weight, &out_.weight, &pos_weight_}) {
    if (weight->rows() != d || weight->cols() != d) raise_invalid_format();
  }
  for (const StoredVector* bias : {&query_.bias, &key_.bias, &value_.bias, &out_.bias, &pos_bias_u_, &pos_bias_v_}) {
    if (bias->size() != d) raise_invalid_format();
  }
  if (d % nhead_ != 0) raise_incorrect("nhead");
  for (Weight* weight : {&query_.weight, &key_.weight, &value_.weight, &out_.weight, &pos_weight_}) pack(*weight);
}

MinibatchPtr RelMHALayer::forward(const LayerInputs&) const { raise("NOT IMPLEMENTED"); }

MinibatchPtr RelMHALayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>&) const {
  const Minibatch& x = *only_input(inputs);
  const float* const from = x.content().data();
  const Eigen::Index d = rows(), columns = x.content().cols();
  if (columns == 0) return inputs.result(d, 0);
  if (PositionedFrames::is_packed(x, d)) {
    const PositionedFrames form(x);
    return attend_all(inputs, from, from, from, form.stride(), form.frames(),
                      [&](Eigen::Index n) { return from + (n < 0 ? form.behind(-n) : form.ahead(n)); });
  }
  expect_rows(x, 2 * d);
  if (columns % 3 != 0) raise_dimension_mismatch();
  const Eigen::Index C = columns / 3, block = 2 * d * C;
  return attend_all(inputs, from, from + block, from + 2 * block, 2 * d, C,
                    [&](Eigen::Index n) { return from + (n + C - 1) * 2 * d + d; });
}

template <class Position>
MinibatchPtr RelMHALayer::attend_all(const LayerInputs& inputs, const float* queries, const float* keys,
                                     const float* values, Eigen::Index stride, Eigen::Index frames,
                                     Position position) const {
  const Eigen::Index d = rows(), distances = 2 * frames - 1;
  float* const k = resized(mha_scratch().k, d * frames);
  float* const v = resized(mha_scratch().v, d * frames);
  float* const positions = resized(mha_scratch().positions, d * distances);
  float* const p = resized(mha_scratch().p, d * distances);
  project_keys(keys, stride, frames, k);
  project_values(values, stride, frames, v);
  for (Eigen::Index m = 0; m < distances; ++m) std::copy_n(position(m - (frames - 1)), d, positions + m * d);
  project_positions(positions, d, distances, p);
  MinibatchPtr y = inputs.result(d, frames);
  attend(queries, stride, frames, k, v, frames, p, y->content().data());
  return y;
}

void RelMHALayer::project_keys(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* k) const {
  key_.run(x, x_stride, frames, k);
}

void RelMHALayer::project_values(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* v) const {
  value_.run(x, x_stride, frames, v);
}

void RelMHALayer::project_positions(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* p) const {
  pos_weight_.multiply(x, x_stride, frames, nullptr, p, rows());
}

void RelMHALayer::attend(const float* x, Eigen::Index x_stride, Eigen::Index frames, const float* k, const float* v,
                         Eigen::Index keys, const float* p, float* y) const {
  const Eigen::Index d = rows();
  float* const q = resized(mha_scratch().q, d * frames);
  float* const context = resized(mha_scratch().context, d * frames);
  query_.run(x, x_stride, frames, q);
  const RelAttention attention{.heads = nhead_,
                               .head_rows = d / nhead_,
                               .queries = frames,
                               .keys = keys,
                               .q = q,
                               .k = k,
                               .v = v,
                               .p = p,
                               .bias_u = pos_bias_u_.data(),
                               .bias_v = pos_bias_v_.data()};
  attention.run(context);
  out_.run(context, d, frames, y);
}

}  // namespace meridane
