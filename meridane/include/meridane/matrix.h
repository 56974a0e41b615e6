#pragma once

#include <Eigen/Core>

// The matrix vocabulary of the engine. What travels is column-major with frames in columns; what is stored is
// row-major.

namespace meridane {

using Matrix = Eigen::MatrixXf;
using Vector = Eigen::VectorXf;
using IntVector = Eigen::VectorXi;
using RowMap = Eigen::Map<Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>>;
using VectorMap = Eigen::Map<Vector>;

}  // namespace meridane
