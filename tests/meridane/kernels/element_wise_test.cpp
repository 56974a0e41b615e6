#include "lib/kernels/element_wise.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "lib/kernels/kernels.h"
#include "noise.h"

namespace meridane {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kUntouched = 1234.5f;

// Distance of a result from the exact value, in units of its last place.
double ulps(float result, double exact) {
  const float rounded = static_cast<float>(exact);
  if (!std::isfinite(rounded)) return result == rounded ? 0 : 1e30;
  const double ulp = std::ldexp(1.0, std::max(std::ilogb(rounded == 0 ? 1e-38f : rounded), -126) - 23);
  return std::fabs(static_cast<double>(result) - exact) / ulp;
}

std::vector<float> ramp(float first, float last, std::size_t count) {
  std::vector<float> values(count);
  for (std::size_t k = 0; k < count; ++k) {
    values[k] = first + (last - first) * static_cast<float>(k) / static_cast<float>(count - 1);
  }
  return values;
}

class ElementWiseTest : public ::testing::TestWithParam<const Kernels*> {
 protected:
  void SetUp() override {
    if (!runs_here(*GetParam())) GTEST_SKIP() << "This machine has no " << GetParam()->name;
  }
  const Kernels& kernels() const { return *GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Sets, ElementWiseTest, ::testing::ValuesIn(kAllKernels),
                         [](const auto& set) { return set.param == &kAvx512Kernels ? "AVX512" : set.param->name; });

// softmax of x and 0 with x below 0 holds exp(x) / (1 + exp(x)); far below 0 that is exp(x). The last value that is no
// subnormal is at -87.33.
TEST_P(ElementWiseTest, ExponentialIsWithinTwoUlp) {
  double worst = 0;
  for (float x = -18; x > -87.33f; x *= 1.00001f) {
    const float in[2] = {x, 0};
    float out[2];
    kernels().softmax(in, 2, 1, out);
    worst = std::max(worst, ulps(out[0], std::exp(static_cast<double>(x))));
  }
  EXPECT_LE(worst, 2);
}

// exp(-t) is within 2 ulp, which near the halves of 1 + exp(-t) is as much of the sum; 1 + and 1 / add a half each.
TEST_P(ElementWiseTest, LogisticIsWithinThreeUlp) {
  const std::vector<float> x = ramp(-87, 87, 200003);
  std::vector<float> y(x.size());
  kernels().logistic(x.data(), x.size(), 1, 0, y.data());
  for (std::size_t k = 0; k < x.size(); ++k) {
    ASSERT_LE(ulps(y[k], 1 / (1 + std::exp(-static_cast<double>(x[k])))), 3) << x[k];
  }
}

// x^2, P, Q, their quotient and the product with x are each rounded, P and Q in their last steps more than once.
TEST_P(ElementWiseTest, TangentIsWithinSixUlpNearZeroToo) {
  std::vector<float> x = ramp(-12, 12, 200003);
  for (float small = 1; small > 1e-30f; small *= 0.97f) x.insert(x.end(), {small, -small});
  std::vector<float> y(x.size());
  kernels().hyperbolic_tangent(x.data(), x.size(), 1, 0, y.data());
  for (std::size_t k = 0; k < x.size(); ++k) {
    ASSERT_LE(ulps(y[k], std::tanh(static_cast<double>(x[k]))), 6) << x[k];
    ASSERT_LE(std::fabs(y[k]), 1) << x[k];
  }
}

TEST_P(ElementWiseTest, SwishAndGatedAreWithinFourUlp) {
  const std::vector<float> x = ramp(-60, 60, 50021), p = Noise(1).samples(x.size());
  std::vector<float> swished(x.size()), gated(x.size());
  kernels().swish(x.data(), x.size(), 1, 0, swished.data());
  kernels().gated(p.data(), x.data(), x.size(), 1, 0, gated.data());
  for (std::size_t k = 0; k < x.size(); ++k) {
    const double exact = 1 / (1 + std::exp(-static_cast<double>(x[k])));
    ASSERT_LE(ulps(swished[k], static_cast<double>(x[k]) * exact), 4) << x[k];
    ASSERT_LE(ulps(gated[k], static_cast<double>(p[k]) * exact), 4) << x[k];
  }
}

// slope x - bias is off by an ulp of its terms at most, here 2^-22 of terms below 4; no slope of these functions is
// above 1.1 times their factor.
TEST_P(ElementWiseTest, SlopeAndBiasShiftTheArgument) {
  const std::vector<float> x = Noise(1).samples(37), p = Noise(1).samples(37);
  std::vector<float> y(37);
  const float slope = 2.75f, bias = 0.625f;
  const double tolerance = 0x1p-21;
  const auto argument = [&](std::size_t k) { return 2.75 * static_cast<double>(x[k]) - 0.625; };
  const auto gate = [&](std::size_t k) { return 1 / (1 + std::exp(-argument(k))); };
  kernels().logistic(x.data(), 37, slope, bias, y.data());
  for (std::size_t k = 0; k < 37; ++k) ASSERT_NEAR(static_cast<double>(y[k]), gate(k), tolerance);
  kernels().hyperbolic_tangent(x.data(), 37, slope, bias, y.data());
  for (std::size_t k = 0; k < 37; ++k) ASSERT_NEAR(static_cast<double>(y[k]), std::tanh(argument(k)), tolerance);
  kernels().swish(x.data(), 37, slope, bias, y.data());
  for (std::size_t k = 0; k < 37; ++k) {
    ASSERT_NEAR(static_cast<double>(y[k]), static_cast<double>(x[k]) * gate(k), tolerance);
  }
  kernels().gated(p.data(), x.data(), 37, slope, bias, y.data());
  for (std::size_t k = 0; k < 37; ++k) {
    ASSERT_NEAR(static_cast<double>(y[k]), static_cast<double>(p[k]) * gate(k), tolerance);
  }
}

TEST_P(ElementWiseTest, LogisticOfOneWithBiasOneIsAHalf) {
  const float x = 1;
  float y = 0;
  kernels().logistic(&x, 1, 1, 1, &y);
  EXPECT_EQ(y, 0.5f);
}

TEST_P(ElementWiseTest, InfinitiesGiveTheLimits) {
  const std::vector<float> x = {kInfinity, -kInfinity, 1000, -1000};
  std::vector<float> y(4);
  kernels().logistic(x.data(), 4, 1, 0, y.data());
  EXPECT_EQ(y, (std::vector<float>{1, 0, 1, 0}));
  kernels().hyperbolic_tangent(x.data(), 4, 1, 0, y.data());
  EXPECT_EQ(y, (std::vector<float>{1, -1, 1, -1}));
  kernels().swish(x.data(), 4, 1, 0, y.data());
  EXPECT_EQ(y, (std::vector<float>{kInfinity, 0, 1000, 0}));
  kernels().swish(x.data(), 4, -1, 0, y.data());
  EXPECT_EQ(y, (std::vector<float>{0, -kInfinity, 0, -1000}));
  const std::vector<float> p = {3, 3, -3, -3};
  kernels().gated(p.data(), x.data(), 4, 1, 0, y.data());
  EXPECT_EQ(y, (std::vector<float>{3, 0, -3, 0}));
  kernels().leaky_rectifier(x.data(), 4, 0.25f, y.data());
  EXPECT_EQ(y, (std::vector<float>{kInfinity, -kInfinity, 1000, -250}));
  kernels().leaky_rectifier(x.data(), 4, 0, y.data());
  EXPECT_EQ(y, (std::vector<float>{kInfinity, 0, 1000, 0}));
  const std::vector<float> masked = {2, -kInfinity, 2, -1000};
  kernels().softmax(masked.data(), 4, 1, y.data());
  EXPECT_EQ(y, (std::vector<float>{0.5f, 0, 0.5f, 0}));
}

// Each payload, in a whole vector and behind it.
TEST_P(ElementWiseTest, WhatIsNoNumberStaysSo) {
  for (const std::uint32_t bits : {0x7fc00000u, 0xffc00000u, 0x7fc001ffu, 0x7fffffffu, 0xffffffffu}) {
    const std::vector<float> x(19, std::bit_cast<float>(bits)), ones(19, 1.0f);
    std::vector<float> y(19);
    const auto expect_none = [&](const char* name) {
      EXPECT_TRUE(std::all_of(y.begin(), y.end(), [](float v) { return std::isnan(v); })) << name << " " << bits;
      std::fill(y.begin(), y.end(), 0.0f);
    };
    kernels().logistic(x.data(), 19, 1, 0, y.data());
    expect_none("logistic");
    kernels().hyperbolic_tangent(x.data(), 19, 1, 0, y.data());
    expect_none("tangent");
    kernels().swish(x.data(), 19, 1, 0, y.data());
    expect_none("swish");
    kernels().gated(ones.data(), x.data(), 19, 1, 0, y.data());
    expect_none("gate");
    kernels().gated(x.data(), ones.data(), 19, 1, 0, y.data());
    expect_none("gated");
    kernels().leaky_rectifier(x.data(), 19, 0.25f, y.data());
    expect_none("leaky rectifier");
    kernels().leaky_rectifier(x.data(), 19, 0, y.data());
    expect_none("rectifier");
    kernels().standardise(x.data(), 19, ones.data(), ones.data(), ones.data(), y.data());
    expect_none("standardise");
    kernels().add(x.data(), 19, ones.data(), y.data());
    expect_none("add");
    kernels().scale(x.data(), 19, ones.data(), y.data());
    expect_none("scale");
    for (const std::size_t place : {0u, 5u, 18u}) {
      std::vector<float> one = Noise(1).samples(19);
      one[place] = std::bit_cast<float>(bits);
      kernels().softmax(one.data(), 19, 1, y.data());
      expect_none("softmax");
      kernels().normalise(one.data(), 19, ones.data(), ones.data(), 1e-5f, y.data());
      expect_none("normalise");
    }
  }
}

TEST_P(ElementWiseTest, LeakyRectifierScalesWhatIsBelowZero) {
  const std::vector<float> x = Noise(1).samples(131);
  std::vector<float> y(131);
  kernels().leaky_rectifier(x.data(), 131, 0.25f, y.data());
  for (std::size_t k = 0; k < 131; ++k) ASSERT_EQ(y[k], std::max(0.0f, x[k]) + 0.25f * std::min(0.0f, x[k]));
}

// Each share is off by the exponential (2 ulp), its argument (half an ulp of up to 4, that is 2 ulp of the result), the
// sum (count / 2 ulp, all of one sign) and two more roundings.
TEST_P(ElementWiseTest, SoftmaxSharesOne) {
  for (const std::size_t count : {1u, 2u, 3u, 4u, 7u, 8u, 15u, 16u, 17u, 33u, 63u, 64u, 65u, 257u}) {
    const std::vector<float> x = Noise(1).samples(count);
    std::vector<float> y(count + 1, kUntouched);
    kernels().softmax(x.data(), count, 0.5f, y.data());
    double sum = 0;
    for (const float v : x) sum += std::exp(static_cast<double>(v) / 0.5);
    for (std::size_t k = 0; k < count; ++k) {
      const double exact = std::exp(static_cast<double>(x[k]) / 0.5) / sum;
      ASSERT_NEAR(static_cast<double>(y[k]), exact, exact * (5 + static_cast<double>(count) / 2) * 0x1p-23) << count;
    }
    EXPECT_EQ(y[count], kUntouched);
  }
}

TEST_P(ElementWiseTest, SoftmaxOfEqualValuesIsUniformHoweverLarge) {
  for (const float value : {-3e38f, 0.0f, 1e30f}) {
    const std::vector<float> x(8, value);
    std::vector<float> y(8);
    kernels().softmax(x.data(), 8, 1, y.data());
    EXPECT_EQ(y, std::vector<float>(8, 0.125f));
  }
}

// Sums of count terms each off by count / 2 ulp of the sum of magnitudes at most, relative to values up to 4.
TEST_P(ElementWiseTest, NormaliseGivesWeightAsDeviationAndBiasAsMean) {
  for (const std::size_t count : {1u, 2u, 3u, 5u, 8u, 15u, 16u, 17u, 31u, 63u, 64u, 65u, 255u, 256u, 257u}) {
    std::vector<float> x = Noise(1).samples(count);
    for (float& v : x) v += 0.75f;
    const std::vector<float> weight = ramp(0.5f, 2, count + 1), bias = ramp(-1, 1, count + 1);
    std::vector<float> y(count + 1, kUntouched);
    kernels().normalise(x.data(), count, weight.data(), bias.data(), 0.25f, y.data());
    double mean = 0, variance = 0;
    for (const float v : x) mean += static_cast<double>(v) / static_cast<double>(count);
    for (const float v : x) {
      variance += (static_cast<double>(v) - mean) * (static_cast<double>(v) - mean) / static_cast<double>(count);
    }
    for (std::size_t k = 0; k < count; ++k) {
      const double exact =
          (static_cast<double>(x[k]) - mean) / std::sqrt(variance + 0.25) * static_cast<double>(weight[k]) +
          static_cast<double>(bias[k]);
      ASSERT_NEAR(static_cast<double>(y[k]), exact, (10 + static_cast<double>(count) / 2) * 0x1p-22) << count;
    }
    EXPECT_EQ(y[count], kUntouched);
  }
}

TEST_P(ElementWiseTest, NormaliseOfEqualValuesIsExactlyTheBias) {
  for (const float value : {0.1f, 1e-30f, -12345.678f, 3e37f}) {
    for (const std::size_t count : {3u, 17u, 129u}) {
      const std::vector<float> x(count, value), weight(count, 7.0f), bias = Noise(1).samples(count);
      std::vector<float> y(count);
      kernels().normalise(x.data(), count, weight.data(), bias.data(), 1e-5f, y.data());
      EXPECT_EQ(y, bias) << value;
    }
  }
}

// The difference, its product and the sum are each rounded, none of them above 4.
TEST_P(ElementWiseTest, StandardiseAddAndScaleTakeAnArrayForEachFactor) {
  for (std::size_t count = 0; count < 70; ++count) {
    const std::vector<float> x = Noise(1).samples(count + 1), scale = ramp(-1, 1, count + 2),
                             shift = ramp(1, 0.5f, count + 2), mean = ramp(-0.5f, 0.3f, count + 2);
    std::vector<float> y(count + 1, kUntouched);
    kernels().standardise(x.data(), count, mean.data(), scale.data(), shift.data(), y.data());
    for (std::size_t k = 0; k < count; ++k) {
      const double z = (static_cast<double>(x[k]) - static_cast<double>(mean[k])) * static_cast<double>(scale[k]);
      ASSERT_NEAR(static_cast<double>(y[k]), z + static_cast<double>(shift[k]), 0x1p-22);
    }
    kernels().add(x.data(), count, shift.data(), y.data());
    for (std::size_t k = 0; k < count; ++k) ASSERT_EQ(y[k], x[k] + shift[k]);
    kernels().scale(x.data(), count, scale.data(), y.data());
    for (std::size_t k = 0; k < count; ++k) ASSERT_EQ(y[k], x[k] * scale[k]);
    EXPECT_EQ(y[count], kUntouched);
  }
}

// Three functions within 3 ulp, in c and h each, whose terms are below 2 and slopes at most 1.
TEST_P(ElementWiseTest, LstmCellTakesItsGatesInTheOrderGIFO) {
  for (const std::size_t count : {std::size_t{1}, std::size_t{3}, std::size_t{4}, std::size_t{16}, std::size_t{37}}) {
    Noise dice(1);
    std::vector<float> z = dice.samples(4 * count), c = dice.samples(count), h(count);
    for (float& value : z) value *= 5;
    const std::vector<float> before = c;
    kernels().lstm_cell(z.data(), count, c.data(), h.data());
    for (std::size_t k = 0; k < count; ++k) {
      const auto gate = [&](std::size_t block) { return static_cast<double>(z[block * count + k]); };
      const auto sigmoid = [](double a) { return 1 / (1 + std::exp(-a)); };
      const double cell = std::tanh(gate(0)) * sigmoid(gate(1)) + sigmoid(gate(2)) * static_cast<double>(before[k]);
      ASSERT_NEAR(static_cast<double>(c[k]), cell, 6 * 0x1p-23);
      ASSERT_NEAR(static_cast<double>(h[k]), sigmoid(gate(3)) * std::tanh(cell), 12 * 0x1p-23);
    }
  }
}

TEST_P(ElementWiseTest, LstmCellOfSaturatedGatesKeepsOrReplacesItsCell) {
  // Cell 0 is replaced by tanh(inf) and put out; cell 1 keeps its 0.5, put out not at all.
  const std::vector<float> z = {kInfinity, kInfinity, 1000, -1000, -1000, kInfinity, 1000, -kInfinity};
  std::vector<float> c = {7, 0.5f}, h(2);
  kernels().lstm_cell(z.data(), 2, c.data(), h.data());
  EXPECT_EQ(c, (std::vector<float>{1, 0.5f}));
  EXPECT_NEAR(h[0], std::tanh(1.0f), 3 * 0x1p-24f);
  EXPECT_EQ(h[1], 0);
}

// In place too, and nothing beside the array is touched.
TEST_P(ElementWiseTest, AResultDoesNotDependOnItsPlace) {
  using Loop = void (*)(const Kernels&, const float*, std::size_t, float*);
  const Loop loops[] = {
      [](const Kernels& set, const float* x, std::size_t n, float* y) { set.logistic(x, n, 1.5f, 0.5f, y); },
      [](const Kernels& set, const float* x, std::size_t n, float* y) { set.hyperbolic_tangent(x, n, 1.5f, 0.5f, y); },
      [](const Kernels& set, const float* x, std::size_t n, float* y) { set.swish(x, n, 1.5f, 0.5f, y); },
      [](const Kernels& set, const float* x, std::size_t n, float* y) { set.gated(x, x, n, 1.5f, 0.5f, y); },
      [](const Kernels& set, const float* x, std::size_t n, float* y) { set.leaky_rectifier(x, n, 0.3f, y); }};
  const std::vector<float> x = Noise(1).samples(100);
  for (const Loop loop : loops) {
    std::vector<float> whole(100);
    loop(kernels(), x.data(), 100, whole.data());
    for (std::size_t count = 0; count < 50; ++count) {
      std::vector<float> part = x;
      loop(kernels(), part.data(), count, part.data());
      ASSERT_TRUE(std::equal(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(count), whole.begin()));
      ASSERT_TRUE(std::equal(part.begin() + static_cast<std::ptrdiff_t>(count), part.end(),
                             x.begin() + static_cast<std::ptrdiff_t>(count)));
    }
  }
}

TEST_P(ElementWiseTest, NormaliseOfNothingTouchesNothing) {
  float y = kUntouched;
  kernels().normalise(nullptr, 0, nullptr, nullptr, 1e-5f, &y);
  EXPECT_EQ(y, kUntouched);
}

// The functions of the header are those of the best set.
TEST(ElementWise, TakesTheBestKernels) {
  const std::vector<float> x = Noise(1).samples(33), p = ramp(-2, 2, 33);
  std::vector<float> y(33), best(33);
  logistic(x.data(), 33, 1, 0, y.data());
  best_kernels().logistic(x.data(), 33, 1, 0, best.data());
  EXPECT_EQ(y, best);
  hyperbolic_tangent(x.data(), 33, 1, 0, y.data());
  best_kernels().hyperbolic_tangent(x.data(), 33, 1, 0, best.data());
  EXPECT_EQ(y, best);
  swish(x.data(), 33, 1, 0, y.data());
  best_kernels().swish(x.data(), 33, 1, 0, best.data());
  EXPECT_EQ(y, best);
  gated(p.data(), x.data(), 33, 1, 0, y.data());
  best_kernels().gated(p.data(), x.data(), 33, 1, 0, best.data());
  EXPECT_EQ(y, best);
  leaky_rectifier(x.data(), 33, 0.3f, y.data());
  best_kernels().leaky_rectifier(x.data(), 33, 0.3f, best.data());
  EXPECT_EQ(y, best);
  softmax(x.data(), 33, 0.3f, y.data());
  best_kernels().softmax(x.data(), 33, 0.3f, best.data());
  EXPECT_EQ(y, best);
  normalise(x.data(), 33, p.data(), x.data(), 0.3f, y.data());
  best_kernels().normalise(x.data(), 33, p.data(), x.data(), 0.3f, best.data());
  EXPECT_EQ(y, best);
  normalise_by(x.data(), 33, 0.2f, 0.3f, p.data(), x.data(), y.data());
  best_kernels().normalise_by(x.data(), 33, 0.2f, 0.3f, p.data(), x.data(), best.data());
  EXPECT_EQ(y, best);
  standardise(x.data(), 33, p.data(), x.data(), p.data(), y.data());
  best_kernels().standardise(x.data(), 33, p.data(), x.data(), p.data(), best.data());
  EXPECT_EQ(y, best);
  add(x.data(), 33, p.data(), y.data());
  best_kernels().add(x.data(), 33, p.data(), best.data());
  EXPECT_EQ(y, best);
  scale(x.data(), 33, p.data(), y.data());
  best_kernels().scale(x.data(), 33, p.data(), best.data());
  EXPECT_EQ(y, best);
  EXPECT_EQ(sum_from(x.data(), 33, 0.1f), best_kernels().sum_from(x.data(), 33, 0.1f));
  EXPECT_EQ(squares_from(x.data(), 33, 0.1f), best_kernels().squares_from(x.data(), 33, 0.1f));
}

// All values are multiples of 1/64 below 1: every partial sum is exact.
TEST_P(ElementWiseTest, TapSumAddsEachRowTimesItsWeights) {
  const auto coarse = [](std::size_t count) {
    std::vector<float> values = Noise(1).samples(count);
    for (float& value : values) value = std::round(value * 64) / 64;
    return values;
  };
  constexpr std::size_t kDistance = 70, kTaps = 9, kStep = 75;
  const std::vector<float> x = coarse(35 * kStep + kTaps * kDistance), weight = coarse(kTaps * kDistance),
                           bias = coarse(kDistance);
  for (std::size_t count = 0; count < kDistance; ++count) {
    for (std::size_t taps = 1; taps <= kTaps; ++taps) {
      const std::size_t frames = count % 35;
      std::vector<float> y(frames * count + 1, kUntouched);
      kernels().tap_sum(x.data(), kStep, frames, count, taps, kDistance, weight.data(), bias.data(), y.data());
      for (std::size_t t = 0; t < frames; ++t) {
        for (std::size_t i = 0; i < count; ++i) {
          double sum = static_cast<double>(bias[i]);
          for (std::size_t k = 0; k < taps; ++k) {
            sum += static_cast<double>(weight[k * count + i]) * static_cast<double>(x[t * kStep + k * kDistance + i]);
          }
          ASSERT_EQ(static_cast<double>(y[t * count + i]), sum) << count << " values, " << taps << " taps";
        }
      }
      ASSERT_EQ(y.back(), kUntouched);
    }
  }
}

}  // namespace
}  // namespace meridane
