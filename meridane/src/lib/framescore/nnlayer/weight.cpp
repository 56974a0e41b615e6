#include "lib/framescore/nnlayer/weight.h"

#include <algorithm>

#include "lib/kernels/kernels.h"

namespace meridane {

void Weight::set(std::shared_ptr<float> block, Eigen::Index rows, Eigen::Index cols) {
  block_ = std::move(block);
  rows_ = rows;
  cols_ = cols;
}

void Weight::pack() {
  // Along a row the product fills its vectors, along few rows it doesn't.
  if (static_cast<std::size_t>(rows_) < best_kernels().lanes) return;
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
  best_kernels().multiply_rows({.w = block_.get(),
                                .rows = static_cast<std::size_t>(rows_),
                                .columns = static_cast<std::size_t>(cols_),
                                .begin = 0,
                                .end = static_cast<std::size_t>(cols_),
                                .x = x,
                                .x_stride = static_cast<std::size_t>(x_stride),
                                .frames = static_cast<std::size_t>(frames),
                                .start = bias,
                                .start_stride = 0,
                                .y = y,
                                .y_stride = static_cast<std::size_t>(y_stride)});
}

void Weight::multiply_backwards(const float* x, Eigen::Index x_stride, Eigen::Index frames, const float* bias, float* y,
                                Eigen::Index y_stride) const {
  if (block_ != nullptr) {
    multiply(x, x_stride, frames, bias, y, y_stride);
    return;
  }
  packed_.multiply_backwards(x, static_cast<std::size_t>(x_stride), static_cast<std::size_t>(frames), bias, y,
                             static_cast<std::size_t>(y_stride));
}

void StoredVector::set(std::shared_ptr<float> block, Eigen::Index size) {
  block_ = std::move(block);
  size_ = size;
}

}  // namespace meridane
