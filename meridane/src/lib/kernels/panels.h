#pragma once

#include <cstddef>

namespace meridane {

/// How a matrix lies in memory as panels: runs of `height` rows, each column after column; the last panel is as high as
/// the rows that are left. Readers take whole vectors of `lanes` values: what they read beyond a column of the last
/// panel doesn't count, but must be there.
struct PanelShape {
  std::size_t rows, columns, lanes, height;

  std::size_t readable_size() const { return rows * columns + lanes - 1; }
  std::size_t height_at(std::size_t first_row) const {
    const std::size_t left = rows - first_row;
    return left < height ? left : height;
  }
  /// Place of an element.
  std::size_t place(std::size_t row, std::size_t column) const {
    const std::size_t first_row = row / height * height;
    return first_row * columns + column * height_at(first_row) + (row - first_row);
  }
};

/// Work for a product of panels: y(i, t) = start(i, t) + sum over k = begin to end - 1 of w(i, k) x(k, t).
/// The sum of a row is taken in the order of k, whatever the number of frames.
template <class Value>
struct Product {
  const Value* w;  ///< panels, as the kernels of the call ask for them
  std::size_t rows, columns;
  std::size_t begin, end;
  const Value* x;  ///< column `begin` of the first frame
  std::size_t x_stride, frames;
  const Value* start;  ///< null for 0; may be y
  std::size_t start_stride;
  Value* y;
  std::size_t y_stride;
};

}  // namespace meridane
