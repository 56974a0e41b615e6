#include "classic/biquad_design.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "reference_blob.h"

namespace sonivo::classic {
namespace {

/// Gain in dB at a frequency in Hz.
double response(const BiquadSpecification& wanted, double f) {
  const BiquadCoefficients c = design_biquad(wanted).value();
  const std::complex<double> z = std::polar(1.0, -2 * std::numbers::pi * f / 48000);  // z^-1
  const auto a = [](float value) { return static_cast<double>(value); };
  const std::complex<double> H =
      (a(c.b0) + a(c.b1) * z + a(c.b2) * z * z) / (1.0 - a(c.minus_a1) * z - a(c.minus_a2) * z * z);
  return 20 * std::log10(std::max(std::abs(H), 1e-10));
}

constexpr double kNyquist = 24000;

TEST(BiquadDesign, FollowsTheFormulasOfEveryType) {
  for (int type = 0; type <= 7; ++type) {
    for (const double Q : {0.3, 0.707, 4.0}) {
      for (const double f0 : {50.0, 1000.0, 15000.0}) {
        for (const double gain : {-12.5, 0.0, 6.0}) {
          const BiquadCoefficients c = design_biquad({type, Q, f0, gain}).value();
          const auto expected = reference::biquad(type, Q, f0, gain);
          EXPECT_FLOAT_EQ(c.b0, static_cast<float>(expected[0]));
          EXPECT_FLOAT_EQ(c.b1, static_cast<float>(expected[1]));
          EXPECT_FLOAT_EQ(c.b2, static_cast<float>(expected[2]));
          EXPECT_FLOAT_EQ(c.minus_a1, static_cast<float>(expected[3]));
          EXPECT_FLOAT_EQ(c.minus_a2, static_cast<float>(expected[4]));
        }
      }
    }
  }
}

TEST(BiquadDesign, PassesWithOneCoefficientAndNoSignedZero) {
  const BiquadCoefficients c = design_biquad({0, 0.7, 1000, 6}).value();
  EXPECT_EQ(c.b0, 1.0f);
  for (const float zero : {c.b1, c.b2, c.minus_a1, c.minus_a2}) {
    EXPECT_EQ(zero, 0.0f);
    EXPECT_FALSE(std::signbit(zero));
  }
}

TEST(BiquadDesign, LowPassIsThreeDecibelsDownAtItsCorner) {
  const BiquadSpecification wanted{1, std::numbers::sqrt2 / 2, 1000, 0};
  EXPECT_NEAR(response(wanted, 0), 0, 1e-3);
  EXPECT_NEAR(response(wanted, 1000), -3.0103, 1e-3);
  EXPECT_LT(response(wanted, kNyquist), -120);
}

TEST(BiquadDesign, HighPassIsThreeDecibelsDownAtItsCorner) {
  const BiquadSpecification wanted{2, std::numbers::sqrt2 / 2, 1000, 0};
  EXPECT_LT(response(wanted, 0), -120);
  EXPECT_NEAR(response(wanted, 1000), -3.0103, 1e-3);
  EXPECT_NEAR(response(wanted, kNyquist), 0, 1e-3);
}

TEST(BiquadDesign, BandPassPassesItsCentre) {
  const BiquadSpecification wanted{3, 2, 3000, 0};
  EXPECT_NEAR(response(wanted, 3000), 0, 1e-3);
  EXPECT_LT(response(wanted, 0), -120);
  EXPECT_LT(response(wanted, kNyquist), -120);
}

TEST(BiquadDesign, NotchStopsItsCentre) {
  const BiquadSpecification wanted{4, 2, 3000, 0};
  EXPECT_LT(response(wanted, 3000), -100);
  EXPECT_NEAR(response(wanted, 0), 0, 1e-3);
  EXPECT_NEAR(response(wanted, kNyquist), 0, 1e-3);
}

TEST(BiquadDesign, PeakAndShelvesReachTheirGain) {
  for (const double gain : {-9.0, 9.0}) {
    EXPECT_NEAR(response({5, 1, 2000, gain}, 2000), gain, 1e-3);
    EXPECT_NEAR(response({5, 1, 2000, gain}, 0), 0, 1e-3);
    EXPECT_NEAR(response({6, 1, 2000, gain}, 0), gain, 1e-3);
    EXPECT_NEAR(response({6, 1, 2000, gain}, kNyquist), 0, 1e-3);
    EXPECT_NEAR(response({7, 1, 2000, gain}, 0), 0, 1e-3);
    EXPECT_NEAR(response({7, 1, 2000, gain}, kNyquist), gain, 1e-3);
  }
}

TEST(BiquadDesign, CutUndoesTheBoost) {
  for (const int type : {5, 6, 7}) {
    for (const double f : {100.0, 1500.0, 2000.0, 9000.0}) {
      EXPECT_NEAR(response({type, 1.3, 2000, 7}, f) + response({type, 1.3, 2000, -7}, f), 0, 1e-4);
    }
  }
}

TEST(BiquadDesign, KnowsNoTypeAboveSeven) {
  EXPECT_FALSE(design_biquad({8, 1, 1000, 0}).has_value());
  EXPECT_FALSE(design_biquad({65535, 1, 1000, 0}).has_value());
}

}  // namespace
}  // namespace sonivo::classic
