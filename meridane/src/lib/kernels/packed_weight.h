#pragma once

#include <cstddef>
#include <memory>

namespace meridane {

struct Kernels;

/// A constant weight matrix W in the order in which the product reads it: panels of rows, each column after column.
/// Packed once, in the memory that the stored form was read into; never changes afterwards.
class PackedWeight {
 public:
  PackedWeight() = default;  ///< 0 x 0
  /// Takes a row-major block of at least block_size(rows, cols) floats, of which the first rows x cols are the matrix,
  /// and packs it in place (beside it only half a megabyte is used, for a moment). Those behind may be anything,
  /// another matrix for one: they are read, but don't count. Fastest where the block begins at a multiple of 64 bytes.
  PackedWeight(std::shared_ptr<float> block, std::size_t rows, std::size_t cols);
  /// The same of a block that holds the matrix column after column.
  static PackedWeight of_columns(std::shared_ptr<float> block, std::size_t rows, std::size_t cols);

  /// Floats that a block must have for a matrix of this size: less than a vector more than rows x cols. 0 where that
  /// overflows.
  static std::size_t block_size(std::size_t rows, std::size_t cols);

  /// These for kernels other than the best of this machine.
  PackedWeight(std::shared_ptr<float> block, std::size_t rows, std::size_t cols, const Kernels& kernels);
  static PackedWeight of_columns(std::shared_ptr<float> block, std::size_t rows, std::size_t cols,
                                 const Kernels& kernels);
  static std::size_t block_size(std::size_t rows, std::size_t cols, const Kernels& kernels);

  std::size_t rows() const { return rows_; }
  std::size_t cols() const { return cols_; }

  /// Row i as it was before packing; out has cols() places.
  void row(std::size_t i, float* out) const;
  float at(std::size_t i, std::size_t k) const;

  /// y(i, t) = bias(i) + sum over k of W(i, k) x(k, t) for t = 0 to frames - 1. A frame's result is the same, bit for
  /// bit, whatever other frames are in the call.
  /// Column t of x begins at x + t * x_stride (columns may overlap), of y at y + t * y_stride; bias may be null. x and
  /// y don't overlap.
  void multiply(const float* x, std::size_t x_stride, std::size_t frames, const float* bias, float* y,
                std::size_t y_stride) const;
  /// The same, added to what y holds: y(i, t) += sum over k of W(i, k) x(k, t).
  void multiply_add(const float* x, std::size_t x_stride, std::size_t frames, float* y, std::size_t y_stride) const;
  /// What multiply() gives, bit for bit, but from the last rows of W to the first. In turns with it, a matrix that
  /// doesn't quite fit into a cache is found there by and large.
  void multiply_backwards(const float* x, std::size_t x_stride, std::size_t frames, const float* bias, float* y,
                          std::size_t y_stride) const;

 private:
  PackedWeight(const Kernels& kernels, std::shared_ptr<float> packed, std::size_t rows, std::size_t cols);
  /// Of the rows from `begin`, where a panel begins, to `end`, which is as high or the end of all. y(i, t) starts from
  /// start(i, t), which may be null and may be y.
  void multiply_rows(std::size_t begin, std::size_t end, const float* x, std::size_t x_stride, std::size_t frames,
                     const float* start, std::size_t start_stride, float* y, std::size_t y_stride) const;

  const Kernels* kernels_ = nullptr;
  std::shared_ptr<float> block_;
  std::size_t rows_ = 0;
  std::size_t cols_ = 0;
};

}  // namespace meridane
