#include "meridane/minibatch.h"

#include <algorithm>
#include <limits>

#include "meridane/error.h"

namespace meridane::impl_host {
namespace {

constexpr std::uint64_t kMostRows = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t kMostValuesNotThere = 1u << 24;

constexpr char kStaleShape[] = "Specified dimensionlity does not match the size of the given minibatch content";

Eigen::Index index(std::uint64_t value) { return static_cast<Eigen::Index>(value); }

/// Rows of a frame. Wraps at 32 bits, as the check of a shape asks for.
std::int32_t wrapped_product(const Minibatch::Shape& shape) {
  std::uint32_t product = 1;
  for (const std::uint64_t size : shape) product *= static_cast<std::uint32_t>(size);
  return static_cast<std::int32_t>(product);
}

/// Rows of a frame that memory is taken for: a shape that is right only modulo 2^32 is none.
Eigen::Index product(std::span<const std::uint64_t> shape) {
  std::uint64_t rows = 1;
  for (const std::uint64_t size : shape) {
    if (size > kMostRows || rows * size > kMostRows) raise(kStaleShape);
    rows *= size;
  }
  return index(rows);
}

}  // namespace

Minibatch::Minibatch() : content_(Matrix::Zero(1, 1)), shape_{1} {}

Minibatch::Minibatch(Matrix content)
    : content_(std::move(content)), shape_{static_cast<std::uint64_t>(content_.rows())} {}

Minibatch::Minibatch(Matrix content, Shape shape) : content_(std::move(content)), shape_(std::move(shape)) {
  if (wrapped_product(shape_) != content_.rows()) raise(kStaleShape);
}

Minibatch::Minibatch(const std::vector<std::shared_ptr<Minibatch>>& inputs, std::uint64_t axis) {
  concatenate(inputs, axis);
}

void Minibatch::concatenate(const std::vector<std::shared_ptr<Minibatch>>& inputs, std::uint64_t axis) {
  shape_.clear();
  Eigen::Index frames = 0;
  if (!inputs.empty()) {
    const Minibatch& first = *inputs.front();
    shape_ = first.shape_;
    frames = first.content_.cols();
    if (axis >= shape_.size()) raise("Invalid axis is specified");
  }
  for (std::size_t k = 1; k < inputs.size(); ++k) {
    const Minibatch& input = *inputs[k];
    if (input.shape_.size() != shape_.size()) raise("Number of axes of input minibatches does not accord");
    if (input.content_.cols() != frames) raise("Minibatch size of input minibatches does not accord");
    for (std::size_t i = 0; i < shape_.size(); ++i) {
      if (i == axis) {
        shape_[i] += input.shape_[i];
      } else if (input.shape_[i] != shape_[i]) {
        raise("Dimension of %d-th axis does not match", static_cast<int>(i));
      }
    }
  }
  if (shape_.size() != 1) raise("Not implemented");
  Eigen::Index rows = 0;  // what is there, whatever the shapes say
  for (const auto& input : inputs) rows += input->content_.rows();
  content_.resize(rows, frames);
  if (frames == 0) return;  // rows of nothing are nowhere
  Eigen::Index row = 0;
  for (const auto& input : inputs) {
    content_.middleRows(row, input->content_.rows()) = input->content_;
    row += input->content_.rows();
  }
}

Minibatch::Minibatch(const std::shared_ptr<FrameSequence>& frames) {
  const Eigen::Index dimensions = std::get<Vector>(frames->at(0)).size();
  shape_ = {static_cast<std::uint64_t>(dimensions)};
  content_.resize(dimensions, index(frames->size()));
  for (std::size_t j = 0; j < frames->size(); ++j) {
    const Vector& frame = std::get<Vector>((*frames)[j]);
    if (frame.size() != dimensions) raise("number of dimentions of input data does not accord");
    content_.col(index(j)) = frame;
  }
}

Minibatch::Minibatch(const Shape&) { raise("Not implemented"); }

std::shared_ptr<Minibatch> Minibatch::uninitialised(std::span<const std::uint64_t> shape, Eigen::Index frames) {
  auto minibatch = std::make_shared<Minibatch>(Matrix());
  minibatch->resize(shape, frames);
  return minibatch;
}

void Minibatch::resize(std::span<const std::uint64_t> shape, Eigen::Index frames) {
  const Eigen::Index rows = product(shape);
  shape_.assign(shape.begin(), shape.end());
  content_.resize(rows, frames);
}

void Minibatch::resize(Eigen::Index rows, Eigen::Index frames) {
  shape_.assign(1, static_cast<std::uint64_t>(rows));
  content_.resize(rows, frames);
}

template <class Weight>
void Minibatch::transform(const Weight& weight, const Vector& bias, Minibatch& out) const {
  if (shape_.size() != 1) raise("Linear transformation size does not match the feature vector size.");
  out.resize(weight.rows(), content_.cols());
  out.content_.noalias() = weight * content_;
  out.content_.colwise() += bias;
}

void Minibatch::linear_xform(const Matrix& weight, const Vector& bias, Minibatch& out) const {
  transform(weight, bias, out);
}

void Minibatch::linear_xform(const RowMap& weight, const Vector& bias, Minibatch& out) const {
  transform(weight, bias, out);
}

void Minibatch::reshape(const Shape&) { raise("Not implemented"); }

std::uint64_t Minibatch::slice_rows(std::uint64_t axis, std::uint64_t start, std::uint64_t end,
                                    std::uint64_t step) const {
  if (step != 1) raise("Not implemented");
  if (axis >= shape_.size()) raise("Invalid axis is specified");
  if (start > shape_[axis]) raise("Invalid start is specified");
  if (end < start) raise("Invalid end is specified");
  if (shape_.size() > 1) raise("Not implemented");
  if (end - start >= kMostRows) raise(kStaleShape);
  return end - start + 1;
}

std::shared_ptr<Minibatch> Minibatch::slice(std::uint64_t axis, std::uint64_t start, std::uint64_t end,
                                            std::uint64_t step) const {
  const std::uint64_t rows = slice_rows(axis, start, end, step);
  const auto stored = static_cast<std::uint64_t>(content_.rows());  // may be less than the shape says
  const std::uint64_t first = std::min(start, stored);
  const std::uint64_t there = std::min(rows, stored - first);
  if (size() > 0 && rows - there > kMostValuesNotThere / size()) raise(kStaleShape);  // before there is memory for them
  Matrix part(index(rows), content_.cols());
  if (size() == 0) return std::make_shared<Minibatch>(std::move(part), Shape{rows});
  part.topRows(index(there)) = content_.middleRows(index(first), index(there));
  part.bottomRows(index(rows - there)).setZero();
  return std::make_shared<Minibatch>(std::move(part), Shape{rows});
}

}  // namespace meridane::impl_host
