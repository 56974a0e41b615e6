#pragma once

#include <string>

#include "lib/framescore/nnlayer/held_bytes.h"
#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// What an LSTM of one direction knows of the frames that it has seen: output h and cell c. A new one is all zeros.
struct LSTMMemory {
  explicit LSTMMemory(Eigen::Index cells) : h(Vector::Zero(cells)), c(Vector::Zero(cells)) {}
  void clear();
  std::uint64_t bytes() const { return held_bytes(h, c); }

  Vector h, c;
};

/// N cells that run over D-row frames in one direction. For each frame x, with s(a) = 1 / (1 + exp(-a)):
///   z = lateral_weight h + upward_weight x + upward_bias (+ lateral_bias), summed in that order
///   g = tanh(z block 0), i = s(z block 1), f = s(z block 2), o = s(z block 3); blocks of N rows
///   c = g i + f c
///   h = o tanh(c), which is the output
/// upward_weight is 4N x D, lateral_weight 4N x N. Both can be 8-bit codes, with h and x quantized frame by frame.
class LSTMDirection {
 public:
  enum class Order { forward, reversed };
  enum class Output { written, added };

  explicit LSTMDirection(bool has_lateral_bias) : has_lateral_bias_(has_lateral_bias) {}

  /// Whether the matrices of the record are codes; before its parameters are loaded.
  void set_in_codes(bool in_codes) { in_codes_ = in_codes; }
  bool in_codes() const { return in_codes_; }
  /// In the order of the record, each name behind the prefix.
  void parameters(ParameterVisitor& visitor, const std::string& prefix = "");
  /// The same; in XML in an element of that name with the children `layer` and `lateral_bias`.
  void nested_parameters(ParameterVisitor& visitor, const char* element);
  /// Throws for sizes that contradict each other; `type` and `prefix` are for the text.
  void check(const char* type, const std::string& prefix = "") const;
  /// Replaces the matrices by their codes, unless they are.
  void quantize();
  Weight& upward_weight() { return upward_weight_; }
  Weight& lateral_weight() { return lateral_weight_; }

  Eigen::Index cells() const { return in_codes_ ? lateral_codes_.size_minor : lateral_weight_.cols(); }
  Eigen::Index rows() const { return in_codes_ ? upward_codes_.size_minor : upward_weight_.cols(); }
  bool fits(const LSTMMemory& memory) const { return memory.h.size() == cells() && memory.c.size() == cells(); }

  /// Runs over the frames, one after the other at x, in that order, from the memory on, which moves on at the end.
  /// The output of the frame at column t of x goes to column t of y, which begins at y + t * y_stride; y may be null.
  /// A frame's result is the same however the frames are divided into calls.
  void run(const float* x, Eigen::Index frames, Order order, LSTMMemory& memory, float* y, Eigen::Index y_stride,
           Output output = Output::written) const;

 private:
  void matrices(ParameterVisitor& visitor, const std::string& prefix);
  void multiply_upward(const float* x, Eigen::Index frames, float* z) const;
  void multiply_lateral(const float* h, float* z, bool backwards) const;
  void sum_gates(const float* lateral, float* z) const;

  bool has_lateral_bias_;
  bool in_codes_ = false;
  Weight upward_weight_, lateral_weight_;
  QuantizedMatrix upward_codes_, lateral_codes_;
  StoredVector upward_bias_, lateral_bias_;
};

}  // namespace meridane
