#include "lib/framescore/nnlayer/jointhat.h"

#include <cmath>

#include "lib/framescore/nnlayer/held_bytes.h"
#include "meridane/error.h"

namespace meridane {
namespace {

struct JointHATLayerState : NNLayerState {
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<JointHATLayerState>(*this); }
  std::uint64_t bytes() const override { return held_bytes(newest); }

  Matrix newest;  ///< lin_dec_weight g of the decoder's newest frame; no columns before the first
};

/// log(1 / (1 + exp(-a))), without an exponential of a positive number.
double log_logistic(double a) { return std::min(a, 0.0) - std::log1p(std::exp(-std::fabs(a))); }

/// log of the sum of exp(z)
template <class Column>
double log_sum_exp(const Column& z) {
  const double largest = z.maxCoeff();
  double sum = 0;
  for (Eigen::Index i = 0; i < z.size(); ++i) sum += std::exp(z(i) - largest);
  return largest + std::log(sum);
}

}  // namespace

void JointHATLayer::parameters(ParameterVisitor& visitor) {
  JointLayer::parameters(visitor);
  visitor.weight("lin_out_blk_weight", blank_.weight);
  visitor.column("lin_out_blk_bias", blank_.bias, kBiasDimensions);
}

void JointHATLayer::loaded() {
  JointLayer::loaded();
  if (blank_.weight.rows() != 1) raise_shape();
  expect_projection(blank_);
  pack(blank_.weight);
}

std::shared_ptr<NNLayerState> JointHATLayer::create_state() const { return std::make_shared<JointHATLayerState>(); }

MinibatchPtr JointHATLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  expect_pair(inputs);
  auto* const own = dynamic_cast<JointHATLayerState*>(state.get());
  if (own == nullptr || (own->newest.cols() > 0 && own->newest.rows() != dec_.weight.rows())) {
    raise("No state for layer %s", id().c_str());
  }
  const Matrix& x = inputs[0]->content();
  const Matrix& g = inputs[1]->content();
  const bool goes_on = g.cols() == 0;
  if (goes_on && own->newest.cols() == 0 && x.cols() > 0) raise("No data is being provided to layer %s", id().c_str());

  thread_local Matrix projected_g, h, blank, labels;
  if (!goes_on) dec_.forward(g, projected_g);
  join(x, goes_on ? own->newest : projected_g, h);
  if (!goes_on) own->newest = projected_g.rightCols(1);
  blank_.forward(h, blank);
  out_.forward(h, labels);
  MinibatchPtr y = inputs.result(1 + labels.rows(), labels.cols());
  for (Eigen::Index t = 0; t < labels.cols(); ++t) {
    const double z = blank(0, t);
    const auto label = labels.col(t).cast<double>();
    y->content()(0, t) = static_cast<float>(log_logistic(z));
    y->content().col(t).tail(labels.rows()) = (label.array() + (log_logistic(-z) - log_sum_exp(label))).cast<float>();
  }
  return y;
}

}  // namespace meridane
