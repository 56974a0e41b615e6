#include "lib/kernels/strips.h"

#include <algorithm>
#include <cassert>
#include <vector>

namespace meridane {
namespace {

constexpr std::size_t kMostScratch = std::size_t{1} << 17;

class Strips {
 public:
  Strips(std::size_t size, std::size_t width) : width_(width), scratch_(std::min(size, kMostScratch)) {}

  void divide(float* matrix, std::size_t rows, std::size_t columns) {
    if (rows < 2 || columns <= width_) return;
    if (rows * columns <= scratch_.size()) {
      copy(matrix, rows, columns);
      return;
    }
    const std::size_t left = (columns / width_ + 1) / 2 * width_;
    part(matrix, rows, columns, left);
    divide(matrix, rows, left);
    divide(matrix + rows * left, rows, columns - left);
  }

 private:
  void copy(float* matrix, std::size_t rows, std::size_t columns) {
    constexpr std::size_t kLine = 16;  // floats of a line of the cache: the read ones are taken whole
    std::copy_n(matrix, rows * columns, scratch_.begin());
    const std::size_t strips = (columns + width_ - 1) / width_, at_once = (kLine + width_ - 1) / width_;
    for (std::size_t first = 0; first < strips; first += at_once) {
      const std::size_t end = std::min(first + at_once, strips);
      for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t strip = first; strip < end; ++strip) {
          const std::size_t column = strip * width_, width = std::min(width_, columns - column);
          std::copy_n(scratch_.data() + i * columns + column, width, matrix + rows * column + i * width);
        }
      }
    }
  }

  /// The first `left` columns before the others, each part row after row.
  void part(float* matrix, std::size_t rows, std::size_t columns, std::size_t left) {
    if (rows < 2) return;
    const std::size_t half = rows / 2;
    part(matrix, half, columns, left);
    part(matrix + half * columns, rows - half, columns, left);
    // left of the upper half, right of the upper half, left of the lower half, right of the lower half
    float* const lower = matrix + half * columns;
    std::rotate(matrix + half * left, lower, lower + (rows - half) * left);
  }

  std::size_t width_;
  std::vector<float> scratch_;
};

}  // namespace

void into_strips(float* matrix, std::size_t rows, std::size_t columns, std::size_t width) {
  assert(width > 0);
  Strips(rows * columns, width).divide(matrix, rows, columns);
}

}  // namespace meridane
