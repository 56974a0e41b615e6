#pragma once

#include <memory>
#include <utility>

#include "lib/kernels/packed_weight.h"
#include "meridane/matrix.h"

namespace meridane {

/// A layer's weight matrix: read row after row into a block, and packed for the product if the layer says so.
class Weight {
 public:
  virtual ~Weight() = default;

  /// block: at least rows x cols floats, row after row; at least PackedWeight::block_size() to be packed.
  void set(std::shared_ptr<float> block, Eigen::Index rows, Eigen::Index cols);
  void pack();

  Eigen::Index rows() const { return rows_; }
  Eigen::Index cols() const { return cols_; }
  virtual void row(Eigen::Index i, float* out) const;
  /// The stored weights; for a matrix that isn't packed.
  RowMap map() const;

  /// y = bias + weight times x. Column t of x begins at x + t * x_stride, of y at y + t * y_stride; bias may be null.
  void multiply(const float* x, Eigen::Index x_stride, Eigen::Index frames, const float* bias, float* y,
                Eigen::Index y_stride) const;
  /// The same, from the last rows to the first where the matrix is packed.
  void multiply_backwards(const float* x, Eigen::Index x_stride, Eigen::Index frames, const float* bias, float* y,
                          Eigen::Index y_stride) const;

 protected:
  /// Gives the stored weights up, for a form of the heir's own.
  std::shared_ptr<float> release() { return std::exchange(block_, nullptr); }

 private:
  std::shared_ptr<float> block_;
  PackedWeight packed_;
  Eigen::Index rows_ = 0;
  Eigen::Index cols_ = 0;
};

/// A layer's vector over a block of its own.
class StoredVector {
 public:
  void set(std::shared_ptr<float> block, Eigen::Index size);
  Eigen::Index size() const { return size_; }
  const float* data() const { return block_.get(); }
  VectorMap map() const { return {block_.get(), size_}; }

 private:
  std::shared_ptr<float> block_;
  Eigen::Index size_ = 0;
};

}  // namespace meridane
