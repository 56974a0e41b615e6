#include "lib/kernels/packed_weight.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <utility>
#include <vector>

#include "lib/kernels/kernels.h"

namespace meridane {
namespace {

PanelShape shape(std::size_t rows, std::size_t cols, const Kernels& kernels) {
  return {.rows = rows, .columns = cols, .lanes = kernels.lanes, .height = kernels.panel_height};
}

}  // namespace

PackedWeight::PackedWeight(std::shared_ptr<float> block, std::size_t rows, std::size_t cols)
    : PackedWeight(std::move(block), rows, cols, best_kernels()) {}

PackedWeight::PackedWeight(std::shared_ptr<float> block, std::size_t rows, std::size_t cols, const Kernels& kernels)
    : kernels_(&kernels), block_(std::move(block)), rows_(rows), cols_(cols) {
  assert(runs_here(kernels));
  assert(rows == 0 || cols == 0 || (block_ && block_size(rows, cols, kernels) > 0));
  const PanelShape panels = shape(rows, cols, kernels);
  std::vector<float> lines(std::min(panels.height, rows) * cols);
  // A panel takes no memory before its lines, so each can go where its lines were.
  for (std::size_t first = 0; first < rows; first += panels.height) {
    const std::size_t height = panels.height_at(first), real_height = std::min(height, rows - first);
    float* panel = block_.get() + first * cols;
    std::copy_n(panel, real_height * cols, lines.begin());
    for (std::size_t k = 0; k < cols; ++k) {
      for (std::size_t i = 0; i < height; ++i) *panel++ = i < real_height ? lines[i * cols + k] : 0.0f;
    }
  }
}

std::size_t PackedWeight::block_size(std::size_t rows, std::size_t cols) {
  return block_size(rows, cols, best_kernels());
}

std::size_t PackedWeight::block_size(std::size_t rows, std::size_t cols, const Kernels& kernels) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / sizeof(float);
  if (rows > kMost - kernels.lanes) return 0;
  const std::size_t padded_rows = shape(rows, cols, kernels).padded_rows();
  return cols != 0 && padded_rows > kMost / cols ? 0 : padded_rows * cols;
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
  if (rows_ == 0) return;
  kernels_->multiply({.w = block_.get(),
                      .rows = rows_,
                      .columns = cols_,
                      .begin = 0,
                      .end = cols_,
                      .x = x,
                      .x_stride = x_stride,
                      .frames = frames,
                      .start = bias,
                      .start_stride = 0,
                      .y = y,
                      .y_stride = y_stride});
}

void PackedWeight::multiply_add(const float* x, std::size_t x_stride, std::size_t frames, float* y,
                                std::size_t y_stride) const {
  if (rows_ == 0) return;
  kernels_->multiply({.w = block_.get(),
                      .rows = rows_,
                      .columns = cols_,
                      .begin = 0,
                      .end = cols_,
                      .x = x,
                      .x_stride = x_stride,
                      .frames = frames,
                      .start = y,
                      .start_stride = y_stride,
                      .y = y,
                      .y_stride = y_stride});
}

}  // namespace meridane
