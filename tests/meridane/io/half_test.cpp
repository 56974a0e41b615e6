#include "meridane/io/half.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace meridane {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr std::uint32_t kQuietNaN = 0x7fc00000;

/// What a code stands for: (1 + m / 2^10) 2^(e - 15), and m 2^-24 where e is 0.
double meaning(std::uint16_t half) {
  const int sign = half >> 15, exponent = half >> 10 & 31, mantissa = half & 1023;
  const double magnitude = exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1 + mantissa / 1024.0, exponent - 15);
  return sign == 0 ? magnitude : -magnitude;
}

bool is_finite(std::uint16_t half) { return (half >> 10 & 31) != 31; }
bool is_nan(std::uint16_t half) { return !is_finite(half) && (half & 1023) != 0; }

template <class Check>
void for_each_code(Check check) {
  for (std::uint32_t code = 0; code < 65536; ++code) check(static_cast<std::uint16_t>(code));
}

TEST(HalfToFloat, IsExactForEveryFiniteCodeAndKeepsTheSignOfZero) {
  for_each_code([](std::uint16_t code) {
    if (!is_finite(code)) return;
    const float value = half_to_float(code);
    ASSERT_EQ(static_cast<double>(value), meaning(code)) << code;
    ASSERT_EQ(std::signbit(value), code >= 0x8000) << code;
  });
}

TEST(HalfToFloat, MapsExponent31ToInfinityOrTheQuietNaN) {
  EXPECT_EQ(half_to_float(0x7c00), kInfinity);
  EXPECT_EQ(half_to_float(0xfc00), -kInfinity);
  for_each_code([](std::uint16_t code) {
    if (!is_nan(code)) return;
    ASSERT_EQ(std::bit_cast<std::uint32_t>(half_to_float(code)), kQuietNaN) << code;
  });
}

TEST(FloatToHalf, TakesEveryCodeBackToItself) {
  for_each_code([](std::uint16_t code) {
    // Signs and payloads of what is no number are gone.
    ASSERT_EQ(float_to_half(half_to_float(code)), is_nan(code) ? 0x7e00 : code) << code;
  });
}

TEST(FloatToHalf, RoundsBetweenNeighboursToTheNearerAndTiesToTheEvenOne) {
  for (std::uint16_t code = 0; code < 0x7bff; ++code) {
    const auto next = static_cast<std::uint16_t>(code + 1);
    const auto middle = static_cast<float>((meaning(code) + meaning(next)) / 2);  // 12 bits: exact
    const std::uint16_t even = code % 2 == 0 ? code : next;
    ASSERT_EQ(float_to_half(middle), even) << code;
    ASSERT_EQ(float_to_half(std::nextafter(middle, 0.0f)), code) << code;
    ASSERT_EQ(float_to_half(std::nextafter(middle, kInfinity)), next) << code;
    ASSERT_EQ(float_to_half(-middle), even | 0x8000) << code;
  }
}

TEST(FloatToHalf, GoesToInfinityFromHalfAStepBeyondTheLargest) {
  EXPECT_EQ(float_to_half(65504), 0x7bff);
  EXPECT_EQ(float_to_half(std::nextafter(65520.0f, 0.0f)), 0x7bff);
  for (const float value : {65520.0f, 65536.0f, 1e10f, std::numeric_limits<float>::max(), kInfinity}) {
    EXPECT_EQ(float_to_half(value), 0x7c00) << value;
    EXPECT_EQ(float_to_half(-value), 0xfc00) << value;
  }
}

TEST(FloatToHalf, GoesToASignedZeroUpToHalfTheSmallest) {
  for (const float value : {0.0f, std::numeric_limits<float>::denorm_min(), 1e-10f, 0x1p-25f}) {
    EXPECT_EQ(float_to_half(value), 0) << value;
    EXPECT_EQ(float_to_half(-value), 0x8000) << value;
  }
  EXPECT_EQ(float_to_half(std::nextafter(0x1p-25f, 1.0f)), 1);
}

TEST(FloatToHalf, KeepsWhatIsNoNumberNoNumber) {
  // Also where the bits that stay are all 0.
  for (const std::uint32_t bits : {0x7fc00000u, 0x7f800001u, 0x7f801fffu, 0x7fffffffu, 0xffc00000u, 0xff800001u}) {
    EXPECT_TRUE(is_nan(float_to_half(std::bit_cast<float>(bits)))) << bits;
  }
}

TEST(FloatToHalf, IsNearestForAnyFloat) {
  std::mt19937 generator(1);
  for (int i = 0; i < 1'000'000; ++i) {
    const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(generator()));
    if (!(std::abs(value) < 65520)) continue;
    const std::uint16_t half = float_to_half(value);
    const double error = std::abs(meaning(half) - static_cast<double>(value));
    for (const int step : {-1, 1}) {
      const auto other = static_cast<std::uint16_t>(half + step);
      if ((other ^ half) >> 15 != 0 || !is_finite(other)) continue;
      ASSERT_LE(error, std::abs(meaning(other) - static_cast<double>(value))) << value;
    }
  }
}

}  // namespace
}  // namespace meridane
