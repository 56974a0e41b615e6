#include "meridane/quantized_matrix.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "lib/kernels/byte_kernels.h"
#include "lib/variable/code_padding.h"
#include "meridane/error.h"

namespace meridane {
namespace {

std::int32_t int_size(Eigen::Index size) {
  if (size > std::numeric_limits<std::int32_t>::max() - kCodeGroup) raise("The matrix is too large to be quantized");
  return static_cast<std::int32_t>(size);
}

std::uint32_t bits(std::int32_t value) { return static_cast<std::uint32_t>(value); }

/// A line without values counts as one of zeros.
LineCodes quantized(const float* values, Eigen::Index count, Eigen::Index padded, std::uint8_t* codes) {
  if (count == 0) return {.scale = 255, .zero = 0, .sum = 0};
  return quantize_line(values, static_cast<std::size_t>(count), static_cast<std::size_t>(padded), codes);
}

/// Frames that are multiplied at once: whole tiles of the product, and few enough for what belongs to them to stay in a
/// cache.
constexpr std::size_t kCodeBlock = 60;

/// Memory of a thread for the quantized frames of a block and their integer product.
struct QuantizingScratch {
  Codes codes;
  std::array<LineCodes, kCodeBlock> lines;
  std::vector<std::int32_t> products;
};

}  // namespace

QuantizedVector::QuantizedVector(const Vector& vector)
    : size_minor(int_size(vector.size())),
      align_size_minor(static_cast<std::int32_t>(rounded_up(vector.size(), kCodeGroup))) {
  quantized_param.resize(static_cast<std::size_t>(align_size_minor));
  const LineCodes line = quantized(vector.data(), size_minor, align_size_minor, quantized_param.data());
  qparam = line.scale;
  rqpmin = line.zero;
  sumqp = line.sum;
}

QuantizedMatrix::QuantizedMatrix(const Matrix& matrix, char operand_kind) {
  const bool left = operand_kind == 'l';
  if (!left && operand_kind != 'r') raise("Unknown operand kind '%c'", operand_kind);
  set_sizes(left ? matrix.rows() : matrix.cols(), left ? matrix.cols() : matrix.rows(), left);
  Vector line;
  for (Eigen::Index i = 0; i < size_major; ++i) {
    if (left) {
      line = matrix.row(i).transpose();
    } else {
      line = matrix.col(i);
    }
    quantize(i, line.data());
  }
  if (left) pack();
}

QuantizedMatrix QuantizedMatrix::of_rows(const float* values, Eigen::Index rows, Eigen::Index cols) {
  QuantizedMatrix matrix;
  matrix.set_sizes(rows, cols, true);
  for (Eigen::Index i = 0; i < rows; ++i) matrix.quantize(i, values + i * cols);
  matrix.pack();
  return matrix;
}

void QuantizedMatrix::set_sizes(Eigen::Index major, Eigen::Index minor, bool left) {
  size_major = int_size(major);
  size_minor = int_size(minor);
  align_size_major = static_cast<std::int32_t>(left ? rounded_up(major, kLineGroup) : major);
  align_size_minor = static_cast<std::int32_t>(rounded_up(minor, kCodeGroup));
  qvector.resize(major);
  rqpmin.resize(major);
  sumqp.resize(major);
  quantized_param.assign(static_cast<std::size_t>(align_size_major) * static_cast<std::size_t>(align_size_minor), 0);
}

void QuantizedMatrix::quantize(Eigen::Index line, const float* values) {
  std::uint8_t* const codes = quantized_param.data() + line * align_size_minor;
  const LineCodes quantities = quantized(values, size_minor, align_size_minor, codes);
  qvector(line) = quantities.scale;
  rqpmin(line) = quantities.zero;
  sumqp(line) = quantities.sum;
}

void QuantizedMatrix::pack() {
  offsets_.resize(size_major);
  for (Eigen::Index i = 0; i < size_major; ++i) {
    offsets_(i) = static_cast<std::int32_t>(bits(sumqp(i)) + bits(size_minor) * bits(rqpmin(i)));
  }
  packed_ = std::make_shared<const PackedCodes>(quantized_param.data(), static_cast<std::size_t>(size_major),
                                                static_cast<std::size_t>(align_size_minor));
}

void QuantizedMatrix::multiply(const float* x, std::size_t x_stride, std::size_t frames, const float* bias, float* y,
                               std::size_t y_stride) const {
  if (packed_ == nullptr) raise<DimensionMismatchError>("A right operand can't stand on the left of a product");
  const auto depth = static_cast<std::size_t>(align_size_minor), lines = static_cast<std::size_t>(size_major);
  const WeightLines weights{
      .count = lines, .scales = qvector.data(), .zeros = rqpmin.data(), .offsets = offsets_.data()};
  thread_local QuantizingScratch scratch;
  scratch.codes.resize(std::min(frames, kCodeBlock) * depth);
  scratch.products.resize(std::min(frames, kCodeBlock) * lines);
  const std::size_t blocks = (frames + kCodeBlock - 1) / kCodeBlock;
  for (std::size_t b = 0; b < blocks; ++b) {
    const std::size_t first = frames * b / blocks, count = frames * (b + 1) / blocks - first;
    for (std::size_t t = 0; t < count; ++t) {
      scratch.lines[t] =
          quantized(x + (first + t) * x_stride, size_minor, align_size_minor, scratch.codes.data() + t * depth);
    }
    packed_->multiply(scratch.codes.data(), count, scratch.products.data());
    for (std::size_t t = 0; t < count; ++t) {
      restore_products(scratch.products.data() + t * lines, scratch.lines[t], weights, bias,
                       y + (first + t) * y_stride);
    }
  }
}

Matrix QuantizedMatrix::multiply(const Matrix& right) const {
  if (right.rows() != size_minor) {
    raise<DimensionMismatchError>("The product of %d columns and %d rows does not exist", size_minor,
                                  int_size(right.rows()));
  }
  Matrix product(size_major, right.cols());
  multiply(right.data(), static_cast<std::size_t>(size_minor), static_cast<std::size_t>(right.cols()), nullptr,
           product.data(), static_cast<std::size_t>(size_major));
  return product;
}

Vector QuantizedMatrix::multiply(const Vector& right) const { return multiply(Matrix(right)).col(0); }

}  // namespace meridane
