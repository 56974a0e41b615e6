// The product with a matrix that lies row after row.

#include <cmath>
#include <vector>

#include "lib/kernels/kernels.h"
#include "noise.h"

namespace meridane {
namespace {

constexpr float kUntouched = 1234.5f;

class RowProductTest : public ::testing::TestWithParam<const Kernels*> {
 protected:
  void SetUp() override {
    if (!runs_here(*GetParam())) GTEST_SKIP() << "This machine has no " << GetParam()->name;
  }
};

INSTANTIATE_TEST_SUITE_P(Sets, RowProductTest, ::testing::ValuesIn(kAllKernels),
                         [](const auto& set) { return set.param == &kAvx512Kernels ? "AVX512" : set.param->name; });

// A sum of products of values up to 1, each step rounded to float: off by half an ulp of a partial sum, which is no
// larger than the sum of the magnitudes.
TEST_P(RowProductTest, MultipliesLikeTheNaiveLoop) {
  for (const std::size_t rows : {1u, 2u, 3u, 4u, 5u, 8u, 15u, 33u}) {
    for (const std::size_t cols : {1u, 3u, 4u, 15u, 16u, 17u, 64u, 131u}) {
      for (const std::size_t frames : {1u, 2u, 3u, 5u, 6u, 7u, 13u}) {
        const std::size_t x_stride = cols + 1, y_stride = rows + 2;
        const std::vector<float> w = Noise(1).samples(rows * cols), x = Noise(2).samples(frames * x_stride);
        const std::vector<float> bias = Noise(3).samples(rows);
        std::vector<float> y(frames * y_stride, kUntouched);
        GetParam()->multiply_rows({.w = w.data(),
                                   .rows = rows,
                                   .columns = cols,
                                   .begin = 0,
                                   .end = cols,
                                   .x = x.data(),
                                   .x_stride = x_stride,
                                   .frames = frames,
                                   .start = frames % 2 == 0 ? nullptr : bias.data(),
                                   .start_stride = 0,
                                   .y = y.data(),
                                   .y_stride = y_stride});
        for (std::size_t t = 0; t < frames; ++t) {
          for (std::size_t i = 0; i < rows; ++i) {
            double sum = frames % 2 == 0 ? 0 : static_cast<double>(bias[i]), magnitudes = std::fabs(sum);
            for (std::size_t k = 0; k < cols; ++k) {
              const double term = static_cast<double>(w[i * cols + k]) * static_cast<double>(x[t * x_stride + k]);
              sum += term;
              magnitudes += std::fabs(term);
            }
            ASSERT_NEAR(static_cast<double>(y[t * y_stride + i]), sum,
                        static_cast<double>(cols + 1) * magnitudes * 0x1p-24)
                << rows << "x" << cols << " row " << i << " frame " << t << " of " << frames;
          }
          for (std::size_t i = rows; i < y_stride; ++i) ASSERT_EQ(y[t * y_stride + i], kUntouched);
        }
      }
    }
  }
}

TEST_P(RowProductTest, AFrameComesOutTheSameInAnyCompany) {
  const std::size_t rows = 7, cols = 133, frames = 20;
  const std::vector<float> w = Noise(1).samples(rows * cols), x = Noise(2).samples(cols * frames);
  std::vector<float> whole(rows * frames), parts(rows * frames);
  Product<float> product{.w = w.data(),
                         .rows = rows,
                         .columns = cols,
                         .begin = 0,
                         .end = cols,
                         .x = x.data(),
                         .x_stride = cols,
                         .frames = frames,
                         .start = nullptr,
                         .start_stride = 0,
                         .y = whole.data(),
                         .y_stride = rows};
  GetParam()->multiply_rows(product);
  for (std::size_t t = 0; t < frames; t += product.frames) {
    product.frames = t % 4 + 1;
    product.x = &x[t * cols];
    product.y = &parts[t * rows];
    if (t + product.frames > frames) product.frames = frames - t;
    GetParam()->multiply_rows(product);
  }
  EXPECT_EQ(parts, whole);
}

}  // namespace
}  // namespace meridane
