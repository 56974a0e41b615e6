#include "lib/kernels/strips.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace meridane {
namespace {

// Each value is its place in the matrix.
void expect_strips(std::size_t rows, std::size_t columns, std::size_t width) {
  std::vector<float> matrix(rows * columns);
  std::iota(matrix.begin(), matrix.end(), 0.0f);
  into_strips(matrix.data(), rows, columns, width);
  std::size_t place = 0;
  for (std::size_t first = 0; first < columns; first += width) {
    for (std::size_t i = 0; i < rows; ++i) {
      for (std::size_t k = first; k < std::min(first + width, columns); ++k) {
        ASSERT_EQ(matrix[place++], static_cast<float>(i * columns + k))
            << rows << "x" << columns << " in strips of " << width;
      }
    }
  }
}

TEST(Strips, HoldTheColumnsRowAfterRow) {
  for (const std::size_t rows : {1u, 2u, 17u, 64u}) {
    for (const std::size_t columns : {1u, 2u, 15u, 16u, 33u, 200u}) {
      for (const std::size_t width : {1u, 3u, 16u, 64u}) expect_strips(rows, columns, width);
    }
  }
}

// Larger than what is copied at once; all values are floats without rounding.
TEST(Strips, OfLargeMatricesAreMadeInPlace) {
  for (const std::size_t width : {1u, 24u, 64u}) {
    expect_strips(3, 100001, width);
    expect_strips(64, 5003, width);
    expect_strips(4099, 65, width);
  }
}

TEST(Strips, OfNothingAreNothing) {
  float value = 7;
  into_strips(&value, 0, 5, 2);
  into_strips(&value, 5, 0, 2);
  EXPECT_EQ(value, 7);
}

}  // namespace
}  // namespace meridane
