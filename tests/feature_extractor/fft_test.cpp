#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>

#include "feature_extractor/chirp_fft.h"
#include "feature_extractor/real_fft.h"
#include "feature_extractor/split_radix_fft.h"
#include "reference.h"

namespace sonivo {
namespace {

using reference::dft;
using reference::message;
using reference::Spectrum;

// Of a level of 1 in every bin on average.
Spectrum random_points(std::size_t count, bool real) {
  std::mt19937 generator(static_cast<unsigned>(count));
  std::normal_distribution<double> normal(0.0, 1.0 / std::sqrt(static_cast<double>(count)));
  Spectrum x(count);
  // What floats can hold, so that the reference has the same points.
  for (auto& value : x)
    value = {static_cast<float>(normal(generator)), real ? 0.0 : static_cast<float>(normal(generator))};
  return x;
}

template <class Real>
void split(const Spectrum& x, std::vector<Real>& re, std::vector<Real>& im) {
  for (const auto& value : x) {
    re.push_back(static_cast<Real>(value.real()));
    im.push_back(static_cast<Real>(value.imag()));
  }
}

template <class Real>
double worst(const Spectrum& X, const std::vector<Real>& re, const std::vector<Real>& im) {
  double error = 0.0;
  for (std::size_t k = 0; k < X.size(); ++k)
    error = std::max(error, std::abs(X[k] - std::complex<double>(re[k], im[k])));
  return error;
}

class PowersOfTwo : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(UpTo4096, PowersOfTwo,
                         testing::Values(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096));

TEST_P(PowersOfTwo, SplitRadixEqualsTheSum) {
  const Spectrum x = random_points(GetParam(), false), X = dft(x);
  const SplitRadixComplexFft<float> fft(GetParam());
  EXPECT_EQ(fft.points(), GetParam());
  std::vector<float> re, im;
  split(x, re, im);
  fft.forward(re.data(), im.data());
  EXPECT_LT(worst(X, re, im), 4e-6);

  const SplitRadixComplexFft<double> exact(GetParam());
  std::vector<double> re64, im64;
  split(x, re64, im64);
  exact.forward(re64.data(), im64.data());
  EXPECT_LT(worst(X, re64, im64), 1e-12);
}

TEST_P(PowersOfTwo, InverseBringsBackNTimesThePoints) {
  const Spectrum x = random_points(GetParam(), false);
  const SplitRadixComplexFft<double> fft(GetParam());
  std::vector<double> re, im;
  split(x, re, im);
  fft.forward(re.data(), im.data());
  fft.inverse(re.data(), im.data());
  Spectrum expected = x;
  for (auto& value : expected) value *= static_cast<double>(GetParam());
  EXPECT_LT(worst(expected, re, im), 1e-11);
}

TEST(SplitRadixComplexFft, RefusesWhatIsNoPowerOfTwo) {
  for (const std::size_t points : {0u, 3u, 400u, 1023u}) {
    EXPECT_EQ(message([=] { SplitRadixComplexFft<float> fft(points); }),
              "SplitRadixComplexFft called with invalid number of points");
  }
}

TEST(SplitRadixComplexFft, RefusesMoreThanItsTablesMayHold) {
  EXPECT_EQ(message([] { SplitRadixComplexFft<float> fft(std::size_t{1} << 22); }),
            "Error: logn is out of bounds in SRFFT");
}

class AnyLength : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(Lengths, AnyLength,
                         testing::Values(1, 2, 3, 5, 6, 7, 9, 11, 13, 100, 127, 129, 400, 441, 551, 1023, 1025, 1102,
                                         1200, 2017));

TEST_P(AnyLength, ChirpEqualsTheSum) {
  const Spectrum x = random_points(GetParam(), false), X = dft(x);
  ChirpFft fft(GetParam());
  EXPECT_EQ(fft.points(), GetParam());
  for (int repeat = 0; repeat < 2; ++repeat) {
    std::vector<double> re, im;
    split(x, re, im);
    fft.forward(re, im);
    EXPECT_LT(worst(X, re, im), 1e-12);
  }
}

void expect_packed(std::size_t points, double tolerance, const WideRealFft* wide = nullptr) {
  const Spectrum x = random_points(points, true), X = dft(x);
  std::vector<float> packed, none;
  split(x, packed, none);
  RealFft fft(points, wide);
  EXPECT_EQ(fft.points(), points);
  fft.forward(packed);
  ASSERT_EQ(packed.size(), points);
  EXPECT_NEAR(packed[0], X[0].real(), tolerance) << points;
  EXPECT_NEAR(packed[1], points % 2 == 0 ? X[points / 2].real() : 0.0, tolerance) << points;
  for (std::size_t i = 2; i < points; ++i) {
    EXPECT_NEAR(packed[i], i % 2 == 0 ? X[i / 2].real() : X[i / 2].imag(), tolerance) << points << " place " << i;
  }
}

TEST(RealFft, EqualsTheSumAtPowersOfTwo) {
  for (std::size_t points = 2; points <= 4096; points *= 2) expect_packed(points, 4e-6);
}

TEST(RealFft, EqualsTheSumOnWideVectors) {
  for (const WideRealFft* wide : kWideRealFfts) {
    if (!runs_here(*wide)) continue;
    SCOPED_TRACE(wide->name);
    for (std::size_t points = wide->least_points; points <= WideRealFft::kMostPoints; points *= 2) {
      ASSERT_TRUE(takes(*wide, points)) << points;
      expect_packed(points, 4e-6, wide);
    }
  }
}

TEST(RealFft, TakesTheWidestVectorsThatFit) {
  for (const std::size_t points : {2u, 64u, 400u, 1102u, 8192u}) EXPECT_EQ(widest_real_fft(points), nullptr) << points;
  for (std::size_t points = 128; points <= 4096; points *= 2) {
    const bool wide = points >= 512 && runs_here(kAvx512RealFft);
    EXPECT_EQ(widest_real_fft(points), wide ? &kAvx512RealFft : runs_here(kAvx2RealFft) ? &kAvx2RealFft : nullptr);
  }
}

// Computed in double precision, so only the rounding of the result is left.
TEST(RealFft, EqualsTheSumAtOtherLengths) {
  for (const std::size_t points : {3u, 5u, 6u, 7u, 12u, 127u, 400u, 441u, 551u, 1102u, 1200u})
    expect_packed(points, 5e-7);
}

}  // namespace
}  // namespace sonivo
