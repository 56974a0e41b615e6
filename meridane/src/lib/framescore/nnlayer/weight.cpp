#include "lib/framescore/nnlayer/weight.h"

#include <algorithm>

namespace meridane {

void Weight::set(std::shared_ptr<float> block, Eigen::Index rows, Eigen::Index cols) {
  block_ = std::move(block);
  rows_ = rows;
  cols_ = cols;
}

void Weight::pack() {
  packed_ = PackedWeight(std::move(block_), static_cast<std::size_t>(rows_), static_cast<std::size_t>(cols_));
}

void Weight::row(Eigen::Index i, float* out) const {
  if (block_ == nullptr) {
    packed_.row(static_cast<std::size_t>(i), out);
  } else {
    std::copy_n(block_.get() + i * cols_, cols_, out);
  }
}

RowMap Weight::map() const { return {block_.get(), rows_, cols_}; }

void Weight::multiply(const float* x, Eigen::Index x_stride, Eigen::Index frames, const float* bias, float* y,
                      Eigen::Index y_stride) const {
  if (block_ == nullptr) {
    packed_.multiply(x, static_cast<std::size_t>(x_stride), static_cast<std::size_t>(frames), bias, y,
                     static_cast<std::size_t>(y_stride));
    return;
  }
  using Columns = Eigen::OuterStride<>;
  const Eigen::Map<const Matrix, 0, Columns> input(x, cols_, frames, Columns(x_stride));
  Eigen::Map<Matrix, 0, Columns> output(y, rows_, frames, Columns(y_stride));
  output.noalias() = map() * input;
  if (bias != nullptr) output.colwise() += Eigen::Map<const Vector>(bias, rows_);
}

void StoredVector::set(std::shared_ptr<float> block, Eigen::Index size) {
  block_ = std::move(block);
  size_ = size;
}

}  // namespace meridane
