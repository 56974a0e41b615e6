#include "relay/sample_convert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <vector>

namespace sonivo {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

/// Packed little-endian bytes of samples of `bits` bits.
std::vector<std::byte> pack(std::uint16_t bits, const std::vector<std::int32_t>& samples) {
  std::vector<std::byte> pcm;
  for (const std::int32_t sample : samples) {
    for (unsigned shift = 0; shift < bits; shift += 8) {
      pcm.push_back(static_cast<std::byte>(static_cast<std::uint32_t>(sample) >> shift & 0xFF));
    }
  }
  return pcm;
}

std::vector<float> to_float(std::uint16_t bits, const std::vector<std::int32_t>& samples) {
  std::vector<float> out(samples.size());
  pcm_to_float(bits, pack(bits, samples).data(), out.data(), out.size());
  return out;
}

std::vector<std::byte> to_pcm(std::uint16_t bits, std::vector<float> samples) {
  std::vector<std::byte> pcm(samples.size() * (bits / 8u));
  float_to_pcm(bits, samples.data(), pcm.data(), samples.size());
  return pcm;
}

TEST(PcmToFloat, Of16BitsDividesBy32768) {
  EXPECT_THAT(to_float(16, {0, 1, -1, 16384, 32767, -32768}),
              ElementsAre(0.0f, 1.0f / 32768, -1.0f / 32768, 0.5f, 32767.0f / 32768, -1.0f));
}

TEST(PcmToFloat, Of24BitsDividesBy8388608AndExtendsTheSign) {
  EXPECT_THAT(to_float(24, {0, 1, -1, 4194304, 8388607, -8388608}),
              ElementsAre(0.0f, 1.0f / 8388608, -1.0f / 8388608, 0.5f, 8388607.0f / 8388608, -1.0f));
}

TEST(PcmToFloat, OfOtherWidthsLeavesTheFloatsAsTheyAre) {
  for (const std::uint16_t bits : std::initializer_list<std::uint16_t>{8, 20, 32}) {
    std::vector<float> out{0.25f, -0.75f};
    const std::vector<std::byte> pcm(8, std::byte{0x55});
    pcm_to_float(bits, pcm.data(), out.data(), out.size());
    EXPECT_THAT(out, ElementsAre(0.25f, -0.75f)) << bits;
  }
}

TEST(FloatToPcm, TruncatesTowardZero) {
  EXPECT_EQ(to_pcm(16, {1.9f / 32768, -1.9f / 32768, 0.99f / 32768, -0.99f / 32768}), pack(16, {1, -1, 0, 0}));
  EXPECT_EQ(to_pcm(24, {1.9f / 8388608, -1.9f / 8388608, 0.99f / 8388608, -0.99f / 8388608}), pack(24, {1, -1, 0, 0}));
}

TEST(FloatToPcm, KeepsTheEndsOfTheRange) {
  EXPECT_EQ(to_pcm(16, {32767.0f / 32768, -1.0f}), pack(16, {32767, -32768}));
  EXPECT_EQ(to_pcm(24, {8388607.0f / 8388608, -1.0f}), pack(24, {8388607, -8388608}));
}

TEST(FloatToPcm, LimitsWhatLiesBeyondTheRange) {
  EXPECT_EQ(to_pcm(16, {1.0f, 1.5f, 1e9f, kInfinity}), pack(16, {32767, 32767, 32767, 32767}));
  EXPECT_EQ(to_pcm(16, {-1.0001f, -1.5f, -1e9f, -kInfinity}), pack(16, {-32768, -32768, -32768, -32768}));
  EXPECT_EQ(to_pcm(24, {1.0f, 1.5f, 1e9f, kInfinity}), pack(24, {8388607, 8388607, 8388607, 8388607}));
  EXPECT_EQ(to_pcm(24, {-1.0001f, -1.5f, -1e9f, -kInfinity}), pack(24, {-8388608, -8388608, -8388608, -8388608}));
}

TEST(FloatToPcm, LimitsAFractionBeyondTheLastSample) {
  EXPECT_EQ(to_pcm(16, {32767.5f / 32768, -32768.5f / 32768}), pack(16, {32767, -32768}));
  EXPECT_EQ(to_pcm(24, {8388607.5f / 8388608}), pack(24, {8388607}));
}

TEST(FloatToPcm, GivesZeroForWhatIsNoNumber) {
  EXPECT_EQ(to_pcm(16, {kNaN, -kNaN}), pack(16, {0, 0}));
  EXPECT_EQ(to_pcm(24, {kNaN, -kNaN}), pack(24, {0, 0}));
}

TEST(FloatToPcm, GivesZeroForTheSmallestNumbers) {
  constexpr float kTiny = std::numeric_limits<float>::denorm_min();
  EXPECT_EQ(to_pcm(16, {kTiny, -kTiny, -0.0f}), pack(16, {0, 0, 0}));
  EXPECT_EQ(to_pcm(24, {kTiny, -kTiny, -0.0f}), pack(24, {0, 0, 0}));
}

TEST(FloatToPcm, ScalesItsInputInPlace) {
  std::vector<float> samples{0.5f, -2.0f};
  std::vector<std::byte> pcm(4);
  float_to_pcm(16, samples.data(), pcm.data(), 2);
  EXPECT_THAT(samples, ElementsAre(16384.0f, -65536.0f));
  samples = {0.5f, -2.0f};
  pcm.resize(6);
  float_to_pcm(24, samples.data(), pcm.data(), 2);
  EXPECT_THAT(samples, ElementsAre(4194304.0f, -16777216.0f));
}

TEST(FloatToPcm, OfOtherWidthsLeavesTheBytesAsTheyAre) {
  for (const std::uint16_t bits : std::initializer_list<std::uint16_t>{8, 20, 32}) {
    std::vector<float> samples{0.5f, -0.5f};
    std::vector<std::byte> pcm(8, std::byte{0x55});
    float_to_pcm(bits, samples.data(), pcm.data(), samples.size());
    EXPECT_THAT(pcm, Each(std::byte{0x55})) << bits;
  }
}

// x scaled, truncated, limited, all in double precision, in which the float inputs and their scaled values are exact.
TEST(FloatToPcm, AgreesWithADoublePrecisionReference) {
  for (const std::uint16_t bits : {std::uint16_t{16}, std::uint16_t{24}}) {
    const double scale = std::ldexp(1.0, bits - 1);
    std::vector<float> samples;
    std::vector<std::int32_t> expected;
    for (int i = -3000; i <= 3000; ++i) {
      samples.push_back(static_cast<float>(i) * 0.000411f);  // to a quarter beyond full scale
      const double limited = std::min(std::max(double{samples.back()} * scale, -scale), scale - 1);
      expected.push_back(static_cast<std::int32_t>(std::trunc(limited)));
    }
    EXPECT_EQ(to_pcm(bits, samples), pack(bits, expected)) << bits;
  }
}

TEST(SampleConversion, Every16BitSampleComesBack) {
  std::vector<std::int32_t> samples;
  for (std::int32_t s = -32768; s <= 32767; ++s) samples.push_back(s);
  EXPECT_EQ(to_pcm(16, to_float(16, samples)), pack(16, samples));
}

TEST(SampleConversion, A24BitSampleComesBack) {
  std::vector<std::int32_t> samples{-8388608, -8388607, -1, 0, 1, 8388606, 8388607};
  for (std::int32_t s = -8388608; s <= 8388607; s += 1001) samples.push_back(s);
  EXPECT_EQ(to_pcm(24, to_float(24, samples)), pack(24, samples));
}

TEST(AllFinite, KnowsEverySampleThatIsNoNumber) {
  const float bad[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity()};
  std::vector<float> samples(961, -std::numeric_limits<float>::max());
  EXPECT_TRUE(all_finite(samples.data(), samples.size()));
  EXPECT_TRUE(all_finite(samples.data(), 0));
  for (const float value : bad) {
    for (const std::size_t at : {std::size_t{0}, std::size_t{479}, std::size_t{960}}) {
      auto one_bad = samples;
      one_bad[at] = value;
      EXPECT_FALSE(all_finite(one_bad.data(), one_bad.size())) << value << " at " << at;
    }
  }
}

}  // namespace
}  // namespace sonivo
