#include "lib/framescore/nnlayer/joint.h"

#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {

void JointLayer::parameters(ParameterVisitor& visitor) {
  visitor.weight("lin_enc_weight", enc_.weight);
  visitor.weight("lin_dec_weight", dec_.weight);
  visitor.column("lin_bias", enc_.bias, kBiasDimensions);
  visitor.weight("lin_out_weight", out_.weight);
  visitor.column("lin_out_bias", out_.bias, kBiasDimensions);
}

void JointLayer::raise_shape() const {
  raise("The shape of the weight matrix for layer %s is incorrect", id().c_str());
}

void JointLayer::expect_projection(const Linear& linear) const {
  if (linear.weight.cols() != enc_.weight.rows()) raise_shape();
  if (linear.bias.size() != linear.weight.rows()) raise({kBiasDimensions}, id().c_str());
}

void JointLayer::loaded() {
  if (dec_.weight.rows() != enc_.weight.rows()) raise_shape();
  if (enc_.bias.size() != enc_.weight.rows()) raise({kBiasDimensions}, id().c_str());
  expect_projection(out_);
  pack(enc_.weight);
  pack(dec_.weight);
  pack(out_.weight);
}

void JointLayer::expect_pair(const LayerInputs& inputs) const {
  if (inputs.size() > 2) raise("Layer %s takes two input streams", id().c_str());
  expect_inputs(inputs);
  if (inputs.size() < 2) raise("No data is being provided to layer %s", id().c_str());
  enc_.expect(*inputs[0]);
  dec_.expect(*inputs[1]);
}

void JointLayer::join(const Matrix& x, const Matrix& projected_g, Matrix& h) const {
  const Eigen::Index of_x = x.cols(), of_g = projected_g.cols();
  if (of_x != of_g && of_x != 1 && of_g != 1) {
    raise("Column size unmatch between 0-th and 1-th tensor. %d vs %d", static_cast<int>(of_g), static_cast<int>(of_x));
  }
  if (of_x == 0 || of_g == 0) {
    h.resize(enc_.weight.rows(), 0);
  } else if (of_x == 1 && of_g != 1) {
    thread_local Matrix projected_x;
    enc_.forward(x, projected_x);
    h = projected_g.colwise() + projected_x.col(0);
  } else {
    enc_.forward(x, h);
    if (of_g == of_x) {
      h += projected_g;
    } else {
      h.colwise() += projected_g.col(0);
    }
  }
  hyperbolic_tangent(h.data(), static_cast<std::size_t>(h.size()), 1, 0, h.data());
}

MinibatchPtr JointLayer::forward(const LayerInputs& inputs) const {
  expect_pair(inputs);
  thread_local Matrix projected_g, h;
  dec_.forward(inputs[1]->content(), projected_g);
  join(inputs[0]->content(), projected_g, h);
  MinibatchPtr y = inputs.result(out_.weight.rows(), h.cols());
  out_.forward(h, y->content());
  return y;
}

}  // namespace meridane
