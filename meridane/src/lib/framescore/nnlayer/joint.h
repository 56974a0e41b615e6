#pragma once

#include "lib/framescore/nnlayer/linear.h"
#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Joins the frames of an encoder (input 0, x) and of a decoder (input 1, g):
///   h = tanh(lin_enc_weight x + lin_dec_weight g + lin_bias)
///   y = lin_out_weight h + lin_out_bias
/// Frames go in pairs; where one input has a single frame, it goes with each of the other's.
/// Record: lin_enc_weight, lin_dec_weight, lin_bias, lin_out_weight, lin_out_bias.
class JointLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Joint"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

  void expect_pair(const LayerInputs& inputs) const;
  /// h of the encoder's frames and of the decoder's, of which lin_dec_weight g is given.
  void join(const Matrix& x, const Matrix& projected_g, Matrix& h) const;
  /// Throws unless the projection is of h, to as many values as its bias has.
  void expect_projection(const Linear& linear) const;
  [[noreturn]] void raise_shape() const;

  static constexpr const char* kBiasDimensions =
      "The number of dimensions of the bias vector for layer %s is incorrect";

  Linear enc_;  ///< with lin_bias
  Linear dec_;
  Linear out_;
};

using CompressedJointLayer = Compressed<JointLayer>;

}  // namespace meridane
