#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Multi-head self-attention with relative positions, on d rows in nhead heads of d / nhead rows each:
///   q = linear_q_weight Q + linear_q_bias, likewise k of K and v of V; p = linear_pos_weight P
///   context = attention as RelAttention states it;  y = linear_out_weight context + linear_out_bias
/// Input, one of two forms:
///   - 2d rows and 3C columns: rows 0 to d - 1 hold Q in the columns 0 to C - 1, then K, then V; rows d to 2d - 1 hold
///     P, from column 0 on the encodings of the distances -(C - 1) to C - 1. C frames come out.
///   - what RelPosEnc gives: Q, K and V are its frames, P its encodings. As many frames come out.
/// Record: int nhead, linear_q_weight, linear_q_bias, linear_k_weight, linear_k_bias, linear_v_weight, linear_v_bias,
/// linear_out_weight, linear_out_bias, linear_pos_weight, pos_bias_u, pos_bias_v. Weights are d x d, biases have d
/// values. Attribute: nhead.
class RelMHALayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  bool is_variable_length() const override { return true; }
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  /// Throws: it runs as a part of a stream only.
  MinibatchPtr forward(const LayerInputs& inputs) const override;

  Eigen::Index rows() const { return query_.weight.rows(); }  ///< d
  // k, v and p of frames that begin every x_stride floats, one behind the other.
  void project_keys(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* k) const;
  void project_values(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* v) const;
  void project_positions(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* p) const;
  /// y of the frames x, which are the last of those that k and v are of; p is of the distances -(keys - 1) to
  /// frames - 1.
  void attend(const float* x, Eigen::Index x_stride, Eigen::Index frames, const float* k, const float* v,
              Eigen::Index keys, const float* p, float* y) const;

 protected:
  std::string tag() const override { return "RelMHA"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  struct Linear {
    void run(const float* x, Eigen::Index x_stride, Eigen::Index frames, float* y) const {
      weight.multiply(x, x_stride, frames, bias.data(), y, weight.rows());
    }
    Weight weight;
    StoredVector bias;
  };

  /// Attention of frames to each other; the encoding of distance n begins at position(n).
  template <class Position>
  MinibatchPtr attend_all(const LayerInputs& inputs, const float* queries, const float* keys, const float* values,
                          Eigen::Index stride, Eigen::Index frames, Position position) const;

  std::int32_t nhead_ = 1;
  Linear query_, key_, value_, out_;
  Weight pos_weight_;
  StoredVector pos_bias_u_, pos_bias_v_;
};

using CompressedRelMHALayer = Compressed<RelMHALayer>;

}  // namespace meridane
