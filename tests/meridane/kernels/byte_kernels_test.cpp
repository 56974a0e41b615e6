#include "lib/kernels/byte_kernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "lib/kernels/code_kernels.h"
#include "noise.h"

namespace meridane {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr std::int32_t kLeastInt = std::numeric_limits<std::int32_t>::min();

std::int32_t to_int(float v) { return v >= -0x1p31f && v < 0x1p31f ? static_cast<std::int32_t>(v) : kLeastInt; }

struct Quantized {
  LineCodes line;
  std::vector<std::uint8_t> codes;
};

// The formula one value at a time; std::round takes ties away from zero.
Quantized naive(const std::vector<float>& x, std::size_t padded) {
  const float m = *std::min_element(x.begin(), x.end()), M = *std::max_element(x.begin(), x.end());
  Quantized q{{255, 0, 0}, std::vector<std::uint8_t>(padded)};
  if (M != m) {
    q.line.scale = 255 / (M - m);
  } else if (m != 0) {
    q.line.scale = 1 / m;
  }
  const volatile float least = q.line.scale * m;  // rounded to float before anything else
  q.line.zero = to_int(std::round(least));
  for (std::size_t k = 0; k < x.size(); ++k) {
    const volatile float scaled = q.line.scale * x[k];
    q.codes[k] = static_cast<std::uint8_t>(to_int(std::round(scaled) - static_cast<float>(q.line.zero)) & 0xff);
    q.line.sum += q.codes[k];
  }
  return q;
}

class ByteKernelsTest : public ::testing::TestWithParam<const CodeKernels*> {
 protected:
  void SetUp() override {
    if (!runs_here(kernels())) GTEST_SKIP() << "This machine has no " << kernels().name;
  }
  const CodeKernels& kernels() const { return *GetParam(); }

  Quantized quantize(const std::vector<float>& x, std::size_t padded) const {
    constexpr std::uint8_t kUntouched = 77;
    Quantized q{{}, std::vector<std::uint8_t>(padded + 1, kUntouched)};
    q.line = kernels().quantize(x.data(), x.size(), padded, q.codes.data());
    EXPECT_EQ(q.codes.back(), kUntouched);
    q.codes.pop_back();
    return q;
  }

  void expect_naive(const std::vector<float>& x) const {
    const std::size_t padded = (x.size() + 15) / 16 * 16;
    const Quantized q = quantize(x, padded), expected = naive(x, padded);
    ASSERT_EQ(q.line.scale, expected.line.scale);
    ASSERT_EQ(q.line.zero, expected.line.zero);
    ASSERT_EQ(q.line.sum, expected.line.sum);
    ASSERT_EQ(q.codes, expected.codes);
  }

  void expect_product(std::size_t lines, std::size_t line_codes, std::size_t frames, const std::vector<std::uint8_t>& w,
                      const std::vector<std::uint8_t>& x) const {
    constexpr std::int32_t kUntouched = 77;
    std::vector<std::int32_t> d(lines * frames + 1, kUntouched);
    PackedCodes(w.data(), lines, line_codes, kernels()).multiply(x.data(), frames, d.data());
    for (std::size_t t = 0; t < frames; ++t) {
      for (std::size_t i = 0; i < lines; ++i) {
        std::uint32_t sum = 0;
        for (std::size_t k = 0; k < line_codes; ++k) {
          sum += static_cast<std::uint32_t>(w[i * line_codes + k]) * x[t * line_codes + k];
        }
        ASSERT_EQ(d[t * lines + i], static_cast<std::int32_t>(sum))
            << lines << "x" << line_codes << " line " << i << " frame " << t << " of " << frames;
      }
    }
    EXPECT_EQ(d.back(), kUntouched);
  }
};

INSTANTIATE_TEST_SUITE_P(Sets, ByteKernelsTest, ::testing::ValuesIn(kAllCodeKernels), [](const auto& set) {
  std::string name = set.param->name;
  std::erase_if(name, [](char c) { return c == '-' || c == ' '; });
  return name;
});

TEST_P(ByteKernelsTest, QuantizesLikeTheFormula) {
  Noise noise(1);
  for (std::size_t count = 1; count < 140; ++count) {
    for (const float scale : {1e-20f, 0.01f, 1.0f, 300.0f, 1e20f}) {
      for (const float offset : {0.0f, -0.9f, 5.0f}) {
        std::vector<float> x(count);
        for (float& v : x) v = (noise.sample() + offset) * scale;
        expect_naive(x);
      }
    }
  }
}

// 255 / (245 - -10) = 1, so that each value is rounded as it is. Ties: 0.5 goes to 1 and -0.5 to -1, 1.5 to 2 (which is
// even anyway), 2.5 to 3 (where nearest-even goes to 2), and so on; the neighbours of a tie go to their own sides.
TEST_P(ByteKernelsTest, EachTieGoesAwayFromZero) {
  std::vector<float> x = {-10, 245};
  std::vector<std::uint8_t> codes = {0, 255};
  for (int n = 0; n < 245; ++n) {
    const float tie = static_cast<float>(n) + 0.5f;
    const auto above = static_cast<std::uint8_t>(n + 1 + 10), below = static_cast<std::uint8_t>(n + 10);
    x.insert(x.end(), {tie, std::nextafter(tie, 0.0f), std::nextafter(tie, 1000.0f)});
    codes.insert(codes.end(), {above, below, above});
  }
  for (int n = 0; n < 10; ++n) {
    const float tie = -static_cast<float>(n) - 0.5f;
    const auto below = static_cast<std::uint8_t>(10 - n - 1), above = static_cast<std::uint8_t>(10 - n);
    x.insert(x.end(), {tie, std::nextafter(tie, 0.0f), std::nextafter(tie, -1000.0f)});
    codes.insert(codes.end(), {below, above, below});
  }
  const std::size_t padded = (x.size() + 15) / 16 * 16;
  codes.resize(padded);
  const Quantized q = quantize(x, padded);
  EXPECT_EQ(q.line.scale, 1);
  EXPECT_EQ(q.line.zero, -10);
  EXPECT_EQ(q.codes, codes);
}

// Where floats are half an integer or a whole one apart, with the scale 1 again.
TEST_P(ByteKernelsTest, TiesFarFromZeroGoAwayToo) {
  for (const float first : {0x1p22f, -0x1p22f - 255, 0x1p23f, -0x1p23f - 255}) {
    std::vector<float> x(511);
    for (std::size_t k = 0; k < x.size(); ++k) x[k] = first + static_cast<float>(k) / 2;
    const Quantized q = quantize(x, 512);
    ASSERT_EQ(q.line.scale, 1);
    ASSERT_EQ(q.line.zero, static_cast<std::int32_t>(first));
    expect_naive(x);
  }
}

// s m is a tie itself: s = 255 / 510 = 0.5, m = -5.
TEST_P(ByteKernelsTest, TheZeroPointIsRoundedAwayFromZeroToo) {
  EXPECT_EQ(quantize({-5, 505}, 16).line.zero, -3);
  EXPECT_EQ(quantize({5, 515}, 16).line.zero, 3);
}

TEST_P(ByteKernelsTest, EqualValuesHaveTheCodesZero) {
  for (const std::size_t count : {1u, 3u, 16u, 21u}) {
    const Quantized q = quantize(std::vector<float>(count, -4.0f), 32);
    EXPECT_EQ(q.line.scale, -0.25f);
    EXPECT_EQ(q.line.zero, 1);
    EXPECT_EQ(q.line.sum, 0);
    EXPECT_EQ(q.codes, std::vector<std::uint8_t>(32, 0));
  }
}

TEST_P(ByteKernelsTest, ZerosHaveTheScale255) {
  for (const float zero : {0.0f, -0.0f}) {
    std::vector<float> x(19, zero);
    x[7] = 0;
    const Quantized q = quantize(x, 32);
    EXPECT_EQ(q.line.scale, 255);
    EXPECT_EQ(q.line.zero, 0);
    EXPECT_EQ(q.line.sum, 0);
    EXPECT_EQ(q.codes, std::vector<std::uint8_t>(32, 0));
  }
}

// Values so near each other, so far from 0, that s x fits no int: the least int has the low byte 0.
TEST_P(ByteKernelsTest, WhatFitsNoIntBecomesTheLeast) {
  std::vector<float> x(20, 1e9f);
  x[3] = std::nextafter(1e9f, 2e9f);
  const Quantized q = quantize(x, 32);
  EXPECT_EQ(q.line.zero, kLeastInt);
  expect_naive(x);
  for (float& v : x) v = -v;
  EXPECT_EQ(quantize(x, 32).line.zero, kLeastInt);
  expect_naive(x);
}

// s = 255 / infinity = 0: 0 times a number is 0, 0 times infinity is no number and so the least int.
TEST_P(ByteKernelsTest, InfinitiesHaveTheScaleZero) {
  for (const std::size_t place : {0u, 5u, 18u}) {
    std::vector<float> x(19, 2.0f);
    x[place] = kInfinity;
    const Quantized up = quantize(x, 32);
    EXPECT_EQ(up.line.scale, 0);
    EXPECT_EQ(up.line.zero, 0);
    EXPECT_EQ(up.codes, std::vector<std::uint8_t>(32, 0));
    x[place] = -kInfinity;
    const Quantized down = quantize(x, 32);
    EXPECT_EQ(down.line.scale, 0);
    EXPECT_EQ(down.line.zero, kLeastInt);
    EXPECT_EQ(down.codes, std::vector<std::uint8_t>(32, 0));
  }
}

TEST_P(ByteKernelsTest, InfinitiesOfBothSignsHaveTheScaleZeroToo) {
  std::vector<float> x(200, 2.0f);
  x[3] = kInfinity;
  x[150] = -kInfinity;
  const Quantized q = quantize(x, 208);
  EXPECT_EQ(q.line.scale, 0);
  EXPECT_EQ(q.line.zero, kLeastInt);
  EXPECT_EQ(q.codes, std::vector<std::uint8_t>(208, 0));
}

TEST_P(ByteKernelsTest, ALineWithNoNumberHasNoScale) {
  for (const std::size_t count : {19u, 200u}) {
    for (std::size_t place = 0; place < count; ++place) {
      std::vector<float> x(count, 2.0f);
      x[6] = 3;
      x[place] = std::numeric_limits<float>::quiet_NaN();
      const Quantized q = quantize(x, 208);
      EXPECT_TRUE(std::isnan(q.line.scale)) << place << " of " << count;
      EXPECT_EQ(q.line.zero, kLeastInt);
      EXPECT_EQ(q.line.sum, 0);
      EXPECT_EQ(q.codes, std::vector<std::uint8_t>(208, 0));
    }
  }
}

TEST_P(ByteKernelsTest, MultipliesLikeTheNaiveLoop) {
  Noise noise(1);
  for (const std::size_t lines : {1u, 3u, 4u, 8u, 9u, 16u, 17u, 60u, 64u, 67u, 132u}) {
    for (const std::size_t line_codes : {16u, 32u, 48u, 112u, 144u}) {
      for (const std::size_t frames : {1u, 2u, 3u, 5u, 6u, 7u, 13u}) {
        expect_product(lines, line_codes, frames, noise.codes(lines * line_codes), noise.codes(frames * line_codes));
      }
    }
  }
}

TEST_P(ByteKernelsTest, MultipliesLongLinesAndManyFrames) {
  Noise noise(1);
  for (const std::size_t line_codes : {512u, 1040u}) {
    for (const std::size_t frames : {1u, 47u, 48u, 49u, 150u}) {
      expect_product(20, line_codes, frames, noise.codes(20 * line_codes), noise.codes(frames * line_codes));
    }
  }
}

// 255 * 255 * 66064 is above 2^32.
TEST_P(ByteKernelsTest, SumsWrapAt32Bits) {
  const std::size_t line_codes = 66064;
  const std::vector<std::uint8_t> w(4 * line_codes, 255), x(7 * line_codes, 255);
  expect_product(4, line_codes, 1, w, x);
  expect_product(4, line_codes, 7, w, x);
}

TEST_P(ByteKernelsTest, NoFramesTouchNothing) {
  const std::vector<std::uint8_t> w(4 * 16, 1);
  std::int32_t d = 77;
  PackedCodes(w.data(), 4, 16, kernels()).multiply(nullptr, 0, &d);
  EXPECT_EQ(d, 77);
}

TEST_P(ByteKernelsTest, WithoutCodesTheSumsAreZero) {
  std::vector<std::int32_t> d(16, 77);
  PackedCodes(nullptr, 8, 0, kernels()).multiply(nullptr, 2, d.data());
  EXPECT_EQ(d, std::vector<std::int32_t>(16, 0));
}

// Exact: integers wrap, and each float operation of the formula is rounded once. Sums of 32 bits come from the noise.
TEST_P(ByteKernelsTest, RestoresTheFloatsOfAProduct) {
  constexpr float kUntouched = 77;
  for (const std::size_t lines : {1u, 3u, 4u, 15u, 16u, 17u, 33u}) {
    std::vector<std::int32_t> d(lines), zeros(lines), offsets(lines);
    std::vector<float> scales(lines), bias(lines);
    for (std::size_t i = 0; i < lines; ++i) {
      const auto k = static_cast<std::int32_t>(i);
      d[i] = 1'000'000'007 * (k % 2 == 0 ? 1 : -1) + 12'345 * k;
      zeros[i] = 40'000 - 3'001 * k;
      offsets[i] = 77'777 * k - 1'000'000;
      scales[i] = 0.37f + static_cast<float>(i);
      bias[i] = 1.25f - static_cast<float>(i);
    }
    const LineCodes frame{.scale = 3.7f, .zero = -90'001, .sum = 99'990};
    const WeightLines weights{
        .count = lines, .scales = scales.data(), .zeros = zeros.data(), .offsets = offsets.data()};
    for (const float* const added : {static_cast<const float*>(nullptr), static_cast<const float*>(bias.data())}) {
      std::vector<float> y(lines + 1, kUntouched);
      kernels().restore(d.data(), frame, weights, added, y.data());
      for (std::size_t i = 0; i < lines; ++i) {
        const std::int64_t sum = d[i] + std::int64_t{frame.sum} * zeros[i] + std::int64_t{frame.zero} * offsets[i];
        const auto wrapped = static_cast<float>(static_cast<std::int32_t>(static_cast<std::uint64_t>(sum)));
        const volatile float scale = frame.scale * scales[i];
        const volatile float product = wrapped / scale;
        const volatile float shifted = added == nullptr ? product : bias[i] + product;
        EXPECT_EQ(y[i], shifted) << "line " << i << " of " << lines;
      }
      EXPECT_EQ(y[lines], kUntouched);
    }
  }
}

TEST(ByteKernels, CopiesShareOneMatrix) {
  const std::vector<std::uint8_t> w(4 * 16, 2), x(16, 3);
  std::vector<std::int32_t> d(4);
  PackedCodes copy;
  copy.multiply(x.data(), 1, nullptr);  // holds nothing yet
  {
    const PackedCodes original(w.data(), 4, 16);
    copy = original;
  }
  copy.multiply(x.data(), 1, d.data());
  EXPECT_EQ(d, std::vector<std::int32_t>(4, 2 * 3 * 16));
}

TEST(ByteKernels, QuantizesWithTheBestKernels) {
  const std::vector<float> x = {-10, 2.5f, 245};
  std::vector<std::uint8_t> codes(16, 77);
  const LineCodes line = quantize_line(x.data(), 3, 16, codes.data());
  EXPECT_EQ(line.scale, 1);
  EXPECT_EQ(line.zero, -10);
  EXPECT_EQ(line.sum, 13 + 255);
  EXPECT_EQ(codes, (std::vector<std::uint8_t>{0, 13, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(CodeKernels, TheBestIsTheLastThatRunsHere) {
  const CodeKernels* last = nullptr;
  for (const CodeKernels* kernels : kAllCodeKernels) {
    if (runs_here(*kernels)) last = kernels;
  }
  EXPECT_EQ(&best_code_kernels(), last);
  EXPECT_TRUE(runs_here(kSse2CodeKernels));
}

}  // namespace
}  // namespace meridane
