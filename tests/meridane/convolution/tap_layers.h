#pragma once

#include <string>
#include <vector>

#include "../layers/layer_record.h"

// Records of convolutions along time, and what their formulas give in double precision.

namespace meridane::test {

/// A record's numbers. Taps one under the other.
struct Taps {
  bool groups = false;
  bool causal = false;
  int pad = 0;
  int dilation = 1;
  int stride = 1;
  int kernel = 1;
  Matrix weight = {};
  Matrix bias = {};

  std::string record(const std::string& type) const {
    Record record(type);
    for (const int value : {groups ? 1 : 0, causal ? 1 : 0, pad, dilation, stride, kernel}) {
      record.number<std::int32_t>(value);
    }
    const bool half = type.starts_with("Compressed");
    return record.matrix(weight, half).matrix(bias, half).bytes();
  }

  Eigen::Index width() const { return Eigen::Index{kernel - 1} * dilation + 1; }
  Eigen::Index overlap() const { return std::max<Eigen::Index>(width() - stride, 0); }
  /// Frame of x that tap k of frame f of y reads, or of y that tap k of frame f of the transpose's x adds to.
  Eigen::Index place(Eigen::Index f, Eigen::Index k) const {
    return f * stride + k * dilation - (causal ? overlap() : pad);
  }
  /// W(k) for frame f.
  Eigen::MatrixXd tap(Eigen::Index k, Eigen::Index f) const {
    const Eigen::Index rows = weight.rows() / kernel;
    const Eigen::MatrixXd block = weight.middleRows(k * rows, rows).cast<double>();
    if (!groups) return block;
    return Eigen::VectorXd(block.col(f % block.cols())).asDiagonal();
  }
};

inline Taps taps_of(Dice& dice, Taps numbers, Eigen::Index rows, Eigen::Index cols, Eigen::Index bias) {
  numbers.weight = dice.matrix(numbers.kernel * rows, cols);
  numbers.bias = dice.matrix(bias, 1);
  return numbers;
}

/// What a layer gives for a stream, in chunks of these lengths over and over.
inline Matrix in_chunks(const NNLayer& layer, const Matrix& x, const std::vector<Eigen::Index>& lengths,
                        std::shared_ptr<NNLayerState> state) {
  Matrix y;
  std::size_t chunk = 0;
  for (Eigen::Index t = 0; t < x.cols(); ++chunk) {
    const Eigen::Index length = std::min(lengths[chunk % lengths.size()], x.cols() - t);
    const Matrix part = layer.forward({minibatch(x.middleCols(t, length))}, state)->content();
    y.conservativeResize(part.rows(), y.cols() + part.cols());
    y.rightCols(part.cols()) = part;
    t += length;
  }
  return y;
}

inline Matrix in_chunks(const NNLayer& layer, const Matrix& x, const std::vector<Eigen::Index>& lengths) {
  return in_chunks(layer, x, lengths, layer.create_state());
}

/// Values are multiples of 2^-10 below 1: their products are multiples of 2^-20, and a float holds the sum of some
/// exactly while it is below 16.
inline void expect_exact(const Matrix& y, const Eigen::MatrixXd& expected) {
  ASSERT_EQ(y.rows(), expected.rows());
  ASSERT_EQ(y.cols(), expected.cols());
  for (Eigen::Index t = 0; t < y.cols(); ++t) {
    for (Eigen::Index i = 0; i < y.rows(); ++i) {
      EXPECT_NEAR(static_cast<double>(y(i, t)), expected(i, t), 0x1p-20) << "row " << i << ", frame " << t;
    }
  }
}

}  // namespace meridane::test
