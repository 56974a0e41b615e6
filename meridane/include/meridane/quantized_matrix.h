#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <vector>

#include "meridane/io/xml.h"
#include "meridane/matrix.h"

// 8-bit affine copies of weights and activations. A value x of a line with scale s and zero point r has the code
// q = round(s x) - r, so that x is about (q + r) / s.

namespace meridane {

class PackedCodes;

using Codes = std::vector<std::uint8_t, Eigen::aligned_allocator<std::uint8_t>>;

/// A vector in 8 bits.
class QuantizedVector {
 public:
  explicit QuantizedVector(const Vector& vector);
  /// Throws "\"<NAME>\" not found in \"QuantizedVector\" " for what is missing.
  explicit QuantizedVector(const XmlElement& element);
  void dump_xml(XmlElement& element, XmlDocument& document) const;

  Codes quantized_param;    ///< align_size_minor codes; those behind size_minor are 0
  float qparam = 0;         ///< scale
  std::int32_t rqpmin = 0;  ///< zero point
  std::int32_t sumqp = 0;   ///< sum of the codes
  std::int32_t size_minor = 0;
  std::int32_t align_size_minor = 0;
};

/// A matrix in 8 bits, in lines: rows of a left operand, 'l', or columns of a right one, 'r'.
class QuantizedMatrix {
 public:
  QuantizedMatrix() = default;  ///< no lines
  QuantizedMatrix(const Matrix& matrix, char operand_kind);
  /// A left operand from its rows, one after the other.
  static QuantizedMatrix of_rows(const float* values, Eigen::Index rows, Eigen::Index cols);

  /// Both throw for what is missing, for sizes that contradict each other and for codes that aren't those of a line.
  /// The forms don't tell the operand: without lines that pad, the matrix is a right one if there should be such, and
  /// of a multiple of 4 lines, where both are the same, a left one.
  static QuantizedMatrix load_binary(std::istream& stream);
  static QuantizedMatrix load_xml(const XmlElement& element);
  void dump_binary(std::ostream& stream) const;
  void dump_xml(XmlElement& element, XmlDocument& document) const;

  /// The product of a left operand, size_major rows, with a right one of size_minor rows, which is quantized first,
  /// column by column:
  ///   y(i, t) = (D(i, t) + Sx rw(i) + rx Sw(i) + rx N rw(i)) / (sx sw(i))
  /// D: product of the codes; S: sums of codes, r: zero points, s: scales, of x in frame t and of w in line i; N:
  /// size_minor. Integers wrap at 32 bits. DimensionMismatchError for other sizes and for right operands.
  Matrix multiply(const Matrix& right) const;
  Vector multiply(const Vector& right) const;
  /// The same on columns at x + t * x_stride, size_minor values each, into columns at y + t * y_stride, with bias(i)
  /// added unless it is null; of one frame it may be y.
  void multiply(const float* x, std::size_t x_stride, std::size_t frames, const float* bias, float* y,
                std::size_t y_stride) const;

  /// Whether it can stand on the left of a product.
  bool is_left() const { return packed_ != nullptr; }

  Codes quantized_param;  ///< align_size_major lines of align_size_minor codes; what pads is 0
  Vector qvector;         ///< scale of each line
  IntVector rqpmin;       ///< zero point of each line
  IntVector sumqp;        ///< sum of codes of each line
  std::int32_t size_major = 0;
  std::int32_t size_minor = 0;
  std::int32_t align_size_major = 0;
  std::int32_t align_size_minor = 0;

 private:
  void set_sizes(Eigen::Index major, Eigen::Index minor, bool left);
  void quantize(Eigen::Index line, const float* values);
  void check() const;
  void pack();
  std::shared_ptr<const PackedCodes> packed_;  ///< of a left operand
  IntVector offsets_;                          ///< of its lines: Sw + N rw
};

}  // namespace meridane
