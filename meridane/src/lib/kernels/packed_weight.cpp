#include "lib/kernels/packed_weight.h"

#include <cassert>
#include <limits>
#include <utility>

#include "lib/kernels/kernels.h"
#include "lib/kernels/strips.h"

namespace meridane {
namespace {

// Whole panels of all kernels, and as many of them as they take at once.
constexpr std::size_t kStripRows = 128;

PanelShape shape(std::size_t rows, std::size_t cols, const Kernels& kernels) {
  return {.rows = rows, .columns = cols, .lanes = kernels.lanes, .height = kernels.panel_height};
}

}  // namespace

PackedWeight::PackedWeight(std::shared_ptr<float> block, std::size_t rows, std::size_t cols)
    : PackedWeight(std::move(block), rows, cols, best_kernels()) {}

PackedWeight::PackedWeight(const Kernels& kernels, std::shared_ptr<float> packed, std::size_t rows, std::size_t cols)
    : kernels_(&kernels), block_(std::move(packed)), rows_(rows), cols_(cols) {
  assert(runs_here(kernels));
  assert(kStripRows % kernels.panel_height == 0);
  assert(rows == 0 || cols == 0 || (block_ && block_size(rows, cols, kernels) > 0));
}

PackedWeight::PackedWeight(std::shared_ptr<float> block, std::size_t rows, std::size_t cols, const Kernels& kernels)
    : PackedWeight(kernels, std::move(block), rows, cols) {
  // A panel takes the memory of its lines, so each can go where its lines were.
  for (std::size_t first = 0; first < rows; first += kernels.panel_height) {
    into_strips(block_.get() + first * cols, shape(rows, cols, kernels).height_at(first), cols, 1);
  }
}

PackedWeight PackedWeight::of_columns(std::shared_ptr<float> block, std::size_t rows, std::size_t cols) {
  return of_columns(std::move(block), rows, cols, best_kernels());
}

PackedWeight PackedWeight::of_columns(std::shared_ptr<float> block, std::size_t rows, std::size_t cols,
                                      const Kernels& kernels) {
  into_strips(block.get(), cols, rows, kernels.panel_height);
  return PackedWeight(kernels, std::move(block), rows, cols);
}

std::size_t PackedWeight::block_size(std::size_t rows, std::size_t cols) {
  return block_size(rows, cols, best_kernels());
}

std::size_t PackedWeight::block_size(std::size_t rows, std::size_t cols, const Kernels& kernels) {
  const std::size_t most = std::numeric_limits<std::size_t>::max() / sizeof(float) - kernels.lanes;
  return cols != 0 && rows > most / cols ? 0 : shape(rows, cols, kernels).readable_size();
}

void PackedWeight::row(std::size_t i, float* out) const {
  assert(i < rows_);
  const PanelShape panels = shape(rows_, cols_, *kernels_);
  for (std::size_t k = 0; k < cols_; ++k) out[k] = block_.get()[panels.place(i, k)];
}

float PackedWeight::at(std::size_t i, std::size_t k) const {
  assert(i < rows_ && k < cols_);
  return block_.get()[shape(rows_, cols_, *kernels_).place(i, k)];
}

void PackedWeight::multiply(const float* x, std::size_t x_stride, std::size_t frames, const float* bias, float* y,
                            std::size_t y_stride) const {
  multiply_rows(0, rows_, x, x_stride, frames, bias, 0, y, y_stride);
}

void PackedWeight::multiply_add(const float* x, std::size_t x_stride, std::size_t frames, float* y,
                                std::size_t y_stride) const {
  multiply_rows(0, rows_, x, x_stride, frames, y, y_stride, y, y_stride);
}

void PackedWeight::multiply_backwards(const float* x, std::size_t x_stride, std::size_t frames, const float* bias,
                                      float* y, std::size_t y_stride) const {
  for (std::size_t end = rows_; end > 0;) {
    const std::size_t begin = (end - 1) / kStripRows * kStripRows;
    multiply_rows(begin, end, x, x_stride, frames, bias, 0, y, y_stride);
    end = begin;
  }
}

void PackedWeight::multiply_rows(std::size_t begin, std::size_t end, const float* x, std::size_t x_stride,
                                 std::size_t frames, const float* start, std::size_t start_stride, float* y,
                                 std::size_t y_stride) const {
  if (begin == end) return;
  kernels_->multiply({.w = block_.get() + begin * cols_,
                      .rows = end - begin,
                      .columns = cols_,
                      .begin = 0,
                      .end = cols_,
                      .x = x,
                      .x_stride = x_stride,
                      .frames = frames,
                      .start = start ? start + begin : nullptr,
                      .start_stride = start_stride,
                      .y = y + begin,
                      .y_stride = y_stride});
}

}  // namespace meridane
