#pragma once

#include <cstddef>

namespace meridane {

/// Puts a matrix that lies row after row into strips of `width` columns, in place: one strip after the other, each row
/// after row; the last strip has the columns that are left. Width 1 transposes. Beside the matrix only half a megabyte
/// is used.
void into_strips(float* matrix, std::size_t rows, std::size_t columns, std::size_t width);

}  // namespace meridane
