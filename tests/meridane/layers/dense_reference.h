#pragma once

#include <gtest/gtest.h>

#include "meridane/matrix.h"

// What a dense layer must compute, in double precision.

namespace meridane::test {

inline constexpr double kRounding = 0x1p-24;  // relative error of one

struct DenseSize {
  Eigen::Index rows, cols, frames;
};
inline constexpr DenseSize kDenseSizes[] = {{1, 1, 1},    {1, 7, 3},    {7, 1, 3},     {3, 5, 1},
                                            {4, 16, 2},   {5, 17, 6},   {16, 15, 7},   {31, 33, 5},
                                            {65, 64, 13}, {63, 129, 4}, {257, 300, 3}, {64, 64, 50}};

/// y against bias + weight x: a sum of K products and a bias may be off by K + 1 roundings of the sum of magnitudes.
inline void expect_product(const Matrix& y, const Matrix& weight, const Matrix& bias, const Matrix& x) {
  const Eigen::MatrixXd W = weight.cast<double>(), X = x.cast<double>(), b = bias.cast<double>();
  const Eigen::MatrixXd expected = (W * X).colwise() + b.col(0);
  const Eigen::MatrixXd magnitude = (W.cwiseAbs() * X.cwiseAbs()).colwise() + b.col(0).cwiseAbs();
  ASSERT_EQ(y.rows(), weight.rows());
  ASSERT_EQ(y.cols(), x.cols());
  for (Eigen::Index t = 0; t < y.cols(); ++t) {
    for (Eigen::Index i = 0; i < y.rows(); ++i) {
      const double roundings = static_cast<double>(weight.cols() + 1);
      EXPECT_NEAR(y(i, t), expected(i, t), roundings * kRounding * magnitude(i, t)) << "row " << i << ", frame " << t;
    }
  }
}

}  // namespace meridane::test
