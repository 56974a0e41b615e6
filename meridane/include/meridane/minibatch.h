#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "meridane/matrix.h"

namespace meridane {

/// One element of what the front end hands over. The engine takes vectors only.
using FrameValue = std::variant<std::monostate, Vector, IntVector, std::string>;
using FrameSequence = std::vector<FrameValue>;

namespace impl_host {

/// What travels between layers: a matrix whose columns are frames and whose rows are the flattened feature vector of a
/// frame, with the logical shape of that vector. Once a layer has returned one, nobody writes into it.
class Minibatch {
 public:
  using Shape = std::vector<std::uint64_t>;  ///< axes of one frame, first axis first

  /// One frame of shape {1} that holds 0.
  Minibatch();
  /// Frames of one axis.
  explicit Minibatch(Matrix content);
  /// The product of the shape, taken modulo 2^32 as a signed number, must be the number of rows.
  Minibatch(Matrix content, Shape shape);
  /// The inputs one under the other along the axis; all else must agree. Only single-axis inputs can be joined.
  Minibatch(const std::vector<std::shared_ptr<Minibatch>>& inputs, std::uint64_t axis);
  /// One frame per element, all of them vectors of one length; std::out_of_range without an element,
  /// std::bad_variant_access for a first element that is no vector.
  explicit Minibatch(const std::shared_ptr<FrameSequence>& frames);
  /// Reserved; throws.
  explicit Minibatch(const Shape& shape);

  /// Content not set: memory for a result. The rows are the product of the shape, which must fit into 31 bits: here a
  /// shape that is right modulo 2^32 only is refused, by the message that the check above has.
  static std::shared_ptr<Minibatch> uninitialised(std::span<const std::uint64_t> shape, Eigen::Index frames);
  /// Takes that form, keeping its memory where the size stays. The same holds for the shape.
  void resize(std::span<const std::uint64_t> shape, Eigen::Index frames);
  void resize(Eigen::Index rows, Eigen::Index frames);  ///< of one axis

  const Matrix& content() const { return content_; }
  Matrix& content() { return content_; }
  const Shape& shape() const { return shape_; }
  std::uint64_t size() const { return static_cast<std::uint64_t>(content_.cols()); }  ///< frames

  /// out = weight times content, plus bias in every column; for single-axis minibatches.
  void linear_xform(const Matrix& weight, const Vector& bias, Minibatch& out) const;
  void linear_xform(const RowMap& weight, const Vector& bias, Minibatch& out) const;
  /// Reserved; throws.
  void reshape(const Shape& shape);
  /// Rows start to end, the latter included, of a single-axis minibatch; step must be 1. Neither may be compared with
  /// the size of the axis alone: start may equal it, end is not looked at. Rows that aren't there read as 0, as long as
  /// these are no more than 2^24 values.
  std::shared_ptr<Minibatch> slice(std::uint64_t axis, std::uint64_t start, std::uint64_t end,
                                   std::uint64_t step) const;
  /// The rows that slice() gives; throws what it throws.
  std::uint64_t slice_rows(std::uint64_t axis, std::uint64_t start, std::uint64_t end, std::uint64_t step) const;
  /// Becomes the inputs one under the other, as the constructor has it, keeping its memory where the size stays. It is
  /// none of the inputs.
  void concatenate(const std::vector<std::shared_ptr<Minibatch>>& inputs, std::uint64_t axis);

 private:
  template <class Weight>
  void transform(const Weight& weight, const Vector& bias, Minibatch& out) const;

  Matrix content_;
  Shape shape_;
};

}  // namespace impl_host

using impl_host::Minibatch;
using MinibatchPtr = std::shared_ptr<Minibatch>;

}  // namespace meridane
