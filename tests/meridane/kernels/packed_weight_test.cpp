#include "lib/kernels/packed_weight.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "lib/kernels/kernels.h"
#include "noise.h"

namespace meridane {
namespace {

constexpr float kUntouched = 1234.5f;

class PackedWeightTest : public ::testing::TestWithParam<const Kernels*> {
 protected:
  void SetUp() override {
    if (!runs_here(*GetParam())) GTEST_SKIP() << "This machine has no " << GetParam()->name;
  }

  PackedWeight pack(const std::vector<float>& weight, std::size_t rows, std::size_t cols) const {
    const std::size_t size = PackedWeight::block_size(rows, cols, *GetParam());
    const std::shared_ptr<float> block(new float[size], std::default_delete<float[]>());
    std::fill_n(block.get(), size, std::numeric_limits<float>::quiet_NaN());
    std::copy(weight.begin(), weight.end(), block.get());
    return PackedWeight(block, rows, cols, *GetParam());
  }
};

INSTANTIATE_TEST_SUITE_P(Sets, PackedWeightTest, ::testing::ValuesIn(kAllKernels),
                         [](const auto& set) { return set.param == &kAvx512Kernels ? "AVX512" : set.param->name; });

// A sum of `cols` products of values up to 1, each rounded to float: each of its steps is off by half an ulp of a
// partial sum at most, which is no larger than the sum of the magnitudes.
double tolerance(double magnitudes, std::size_t cols) { return (static_cast<double>(cols) + 1) * magnitudes * 0x1p-24; }

void expect_product(const PackedWeight& packed, const std::vector<float>& weight, std::size_t x_stride,
                    std::size_t frames, bool with_bias) {
  const std::size_t rows = packed.rows(), cols = packed.cols(), y_stride = rows + 3;
  const std::vector<float> x = Noise(2).samples(x_stride * frames + cols), bias = Noise(3).samples(rows);
  const std::vector<float> old = Noise(4).samples(y_stride * frames + 8);
  std::vector<float> y(y_stride * frames + 8, kUntouched), added = old;
  packed.multiply(x.data(), x_stride, frames, with_bias ? bias.data() : nullptr, y.data(), y_stride);
  packed.multiply_add(x.data(), x_stride, frames, added.data(), y_stride);
  for (std::size_t t = 0; t < frames; ++t) {
    for (std::size_t i = 0; i < rows; ++i) {
      double sum = 0, magnitudes = 0;
      for (std::size_t k = 0; k < cols; ++k) {
        const double term = static_cast<double>(weight[i * cols + k]) * static_cast<double>(x[t * x_stride + k]);
        sum += term;
        magnitudes += std::fabs(term);
      }
      const double first = with_bias ? static_cast<double>(bias[i]) : 0;
      const double before = static_cast<double>(old[t * y_stride + i]);
      ASSERT_NEAR(static_cast<double>(y[t * y_stride + i]), first + sum, tolerance(std::fabs(first) + magnitudes, cols))
          << rows << "x" << cols << " row " << i << " frame " << t << " of " << frames;
      ASSERT_NEAR(static_cast<double>(added[t * y_stride + i]), before + sum,
                  tolerance(std::fabs(before) + magnitudes, cols))
          << rows << "x" << cols << " row " << i << " frame " << t << " of " << frames;
    }
    for (std::size_t i = rows; i < y_stride; ++i) {
      ASSERT_EQ(y[t * y_stride + i], kUntouched);
      ASSERT_EQ(added[t * y_stride + i], old[t * y_stride + i]);
    }
  }
}

TEST_P(PackedWeightTest, MultipliesLikeTheNaiveLoop) {
  for (const std::size_t rows :
       {1u, 2u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 33u, 47u, 48u, 63u, 64u, 65u, 127u, 128u, 129u, 200u, 257u}) {
    for (const std::size_t cols : {1u, 2u, 5u, 16u, 31u, 33u, 127u, 129u}) {
      const std::vector<float> weight = Noise(1).samples(rows * cols);
      const PackedWeight packed = pack(weight, rows, cols);
      for (const std::size_t frames : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 13u}) {
        expect_product(packed, weight, cols, frames, frames % 2 == 0);
      }
    }
  }
}

TEST_P(PackedWeightTest, MultipliesDeepMatricesAndManyFrames) {
  for (const std::size_t cols : {1023u, 1025u}) {
    const std::vector<float> weight = Noise(1).samples(71 * cols);
    const PackedWeight packed = pack(weight, 71, cols);
    for (const std::size_t frames : {1u, 6u, 12u, 50u, 193u}) expect_product(packed, weight, cols + 1, frames, true);
  }
}

// As a convolution along time asks for them: tap offsets into one buffer.
TEST_P(PackedWeightTest, ColumnsMayOverlap) {
  const std::vector<float> weight = Noise(1).samples(65 * 96);
  const PackedWeight packed = pack(weight, 65, 96);
  for (const std::size_t stride : {0u, 1u, 32u}) expect_product(packed, weight, stride, 11, true);
}

TEST_P(PackedWeightTest, AFrameComesOutTheSameInAnyCompany) {
  const std::size_t rows = 273, cols = 1030, frames = 200;
  const PackedWeight packed = pack(Noise(1).samples(rows * cols), rows, cols);
  const std::vector<float> x = Noise(2).samples(cols * frames), bias = Noise(3).samples(rows);
  std::vector<float> whole(rows * frames), parts(rows * frames);
  packed.multiply(x.data(), cols, frames, bias.data(), whole.data(), rows);
  for (std::size_t t = 0, count = 1; t < frames; t += count, count = count % 13 + 1) {
    count = std::min(count, frames - t);
    packed.multiply(&x[t * cols], cols, count, bias.data(), &parts[t * rows], rows);
  }
  EXPECT_EQ(parts, whole);
}

TEST_P(PackedWeightTest, GivesTheSameBackwards) {
  const std::size_t cols = 37, frames = 3, x_stride = 40;
  const std::vector<float> x = Noise(2).samples(x_stride * frames);
  for (const std::size_t rows : {1u, 64u, 127u, 128u, 129u, 256u, 511u, 513u}) {
    const PackedWeight packed = pack(Noise(1).samples(rows * cols), rows, cols);
    const std::vector<float> bias = Noise(3).samples(rows);
    for (const float* const start : {bias.data(), static_cast<const float*>(nullptr)}) {
      std::vector<float> y((rows + 2) * frames, kUntouched), backwards = y;
      packed.multiply(x.data(), x_stride, frames, start, y.data(), rows + 2);
      packed.multiply_backwards(x.data(), x_stride, frames, start, backwards.data(), rows + 2);
      ASSERT_EQ(backwards, y) << rows << " rows";
    }
  }
}

TEST_P(PackedWeightTest, GivesBackEachRow) {
  for (const std::size_t rows : {1u, 9u, 16u, 63u, 64u, 65u, 130u}) {
    const std::size_t cols = 19;
    const std::vector<float> weight = Noise(1).samples(rows * cols);
    const PackedWeight packed = pack(weight, rows, cols);
    std::vector<float> row(cols);
    for (std::size_t i = 0; i < rows; ++i) {
      packed.row(i, row.data());
      ASSERT_TRUE(std::equal(row.begin(), row.end(), &weight[i * cols])) << "row " << i << " of " << rows;
    }
  }
}

TEST_P(PackedWeightTest, NoFramesTouchNothing) {
  const PackedWeight packed = pack(Noise(1).samples(20 * 5), 20, 5);
  float y = kUntouched;
  packed.multiply(nullptr, 5, 0, nullptr, &y, 20);
  packed.multiply_add(nullptr, 5, 0, &y, 20);
  EXPECT_EQ(y, kUntouched);
}

TEST_P(PackedWeightTest, WithoutColumnsTheBiasIsLeft) {
  const PackedWeight packed = pack({}, 19, 0);
  const std::vector<float> bias = Noise(3).samples(19);
  for (const std::size_t frames : {1u, 7u}) {
    std::vector<float> y(19 * frames, kUntouched);
    packed.multiply(nullptr, 0, frames, bias.data(), y.data(), 19);
    for (std::size_t t = 0; t < frames; ++t) ASSERT_TRUE(std::equal(bias.begin(), bias.end(), &y[t * 19]));
    const std::vector<float> before = y;
    packed.multiply_add(nullptr, 0, frames, y.data(), 19);
    EXPECT_EQ(y, before);
  }
}

// The rows that fill up a panel are 0, and 0 times what is no number is none; none of that may be seen.
TEST_P(PackedWeightTest, WhatIsNoNumberStaysInItsFrame) {
  const std::size_t rows = 21, cols = 9;
  const PackedWeight packed = pack(Noise(1).samples(rows * cols), rows, cols);
  std::vector<float> x = Noise(2).samples(3 * cols), y(3 * rows);
  x[cols + 4] = std::numeric_limits<float>::quiet_NaN();
  packed.multiply(x.data(), cols, 3, nullptr, y.data(), rows);
  for (std::size_t i = 0; i < rows; ++i) {
    EXPECT_TRUE(std::isfinite(y[i]));
    EXPECT_TRUE(std::isnan(y[rows + i]));
    EXPECT_TRUE(std::isfinite(y[2 * rows + i]));
  }
}

TEST_P(PackedWeightTest, BlockSizeIsZeroWhereItOverflows) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
  const Kernels& kernels = *GetParam();
  EXPECT_EQ(PackedWeight::block_size(kMost, 1, kernels), 0u);
  EXPECT_EQ(PackedWeight::block_size(1, kMost, kernels), 0u);
  EXPECT_EQ(PackedWeight::block_size(kMost / 8, 3, kernels), 0u);
  EXPECT_EQ(PackedWeight::block_size(std::size_t{1} << 32, std::size_t{1} << 32, kernels), 0u);
  EXPECT_EQ(PackedWeight::block_size(1, kMost / sizeof(float), kernels), 0u);
}

// Whatever its shape, a matrix takes its own size and less than the line of a cache.
TEST_P(PackedWeightTest, FlatMatricesTakeNoMoreThanTheirSize) {
  struct Size {
    std::size_t rows, cols;
  };
  for (const auto& [rows, cols] :
       {Size{1, 1}, Size{1, 20000}, Size{20000, 1}, Size{3, 5000}, Size{5000, 3}, Size{17, 17}, Size{256, 257},
        Size{257, 256}, Size{65, 1000}, Size{16, 512}, Size{512, 512}}) {
    const std::size_t size = PackedWeight::block_size(rows, cols, *GetParam());
    EXPECT_GE(size, rows * cols);
    EXPECT_LT(size, rows * cols + 64 / sizeof(float)) << rows << "x" << cols;
  }
}

// The line of a cache behind the matrix may be read, but what stands there doesn't count.
TEST_P(PackedWeightTest, WhatStandsBehindTheBlockDoesNotCount) {
  for (const std::size_t rows : {1u, 17u, 67u}) {
    const std::size_t cols = 5;
    const std::vector<float> weight = Noise(1).samples(rows * cols);
    const std::shared_ptr<float> block(new float[rows * cols + 16], std::default_delete<float[]>());
    std::copy(weight.begin(), weight.end(), block.get());
    std::fill_n(block.get() + rows * cols, 16, std::numeric_limits<float>::quiet_NaN());
    expect_product(PackedWeight(block, rows, cols, *GetParam()), weight, cols, 7, true);
    for (std::size_t i = 0; i < 16; ++i) EXPECT_TRUE(std::isnan(block.get()[rows * cols + i]));
  }
}

TEST_P(PackedWeightTest, OfColumnsIsOfTheTransposedMatrix) {
  for (const std::size_t rows : {1u, 16u, 65u, 200u}) {
    for (const std::size_t cols : {1u, 33u, 700u}) {
      const std::vector<float> weight = Noise(1).samples(rows * cols);
      std::vector<float> columns;
      for (std::size_t k = 0; k < cols; ++k) {
        for (std::size_t i = 0; i < rows; ++i) columns.push_back(weight[i * cols + k]);
      }
      const std::shared_ptr<float> block(new float[PackedWeight::block_size(rows, cols, *GetParam())](),
                                         std::default_delete<float[]>());
      std::copy(columns.begin(), columns.end(), block.get());
      expect_product(PackedWeight::of_columns(block, rows, cols, *GetParam()), weight, cols, 3, true);
    }
  }
}

TEST(PackedWeight, HoldsNothingAtFirst) {
  const PackedWeight none;
  EXPECT_EQ(none.rows(), 0u);
  EXPECT_EQ(none.cols(), 0u);
  float y = kUntouched;
  none.multiply(nullptr, 0, 3, nullptr, &y, 0);
  none.multiply_add(nullptr, 0, 3, &y, 0);
  EXPECT_EQ(y, kUntouched);
}

TEST(Kernels, TheBestIsTheLastThatRunsHere) {
  const Kernels* last = nullptr;
  for (const Kernels* kernels : kAllKernels) {
    if (runs_here(*kernels)) last = kernels;
  }
  EXPECT_EQ(&best_kernels(), last);
  EXPECT_TRUE(runs_here(kSse2Kernels));
}

}  // namespace
}  // namespace meridane
