#include "relay/sample_convert.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace sonivo::test {
namespace {

std::vector<std::byte> bytes_of(std::initializer_list<int> values) {
  std::vector<std::byte> bytes;
  for (const int value : values) bytes.push_back(static_cast<std::byte>(value));
  return bytes;
}

float to_float(std::uint16_t bits, std::initializer_list<int> pcm) {
  float sample = 99.0f;
  pcm_to_float(bits, bytes_of(pcm).data(), &sample, 1);
  return sample;
}

/// Sample as it comes out, sign-extended.
std::int32_t to_pcm(std::uint16_t bits, float sample) {
  std::vector<std::byte> pcm(bits / 8u);
  float_to_pcm(bits, &sample, pcm.data(), 1);
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < pcm.size(); ++i) value |= std::to_integer<std::uint32_t>(pcm[i]) << (8 * i);
  return static_cast<std::int32_t>(value << (32 - bits)) >> (32 - bits);
}

TEST(SampleConversion, Divides16BitSamplesBy32768) {
  EXPECT_EQ(to_float(16, {0x01, 0x00}), 1.0f / 32768.0f);
  EXPECT_EQ(to_float(16, {0xFF, 0x7F}), 32767.0f / 32768.0f);
  EXPECT_EQ(to_float(16, {0x00, 0x80}), -1.0f);
  EXPECT_EQ(to_float(16, {0xFF, 0xFF}), -1.0f / 32768.0f);
}

TEST(SampleConversion, SignExtends24BitSamplesAndDividesBy8388608) {
  EXPECT_EQ(to_float(24, {0x01, 0x00, 0x00}), 1.0f / 8388608.0f);
  EXPECT_EQ(to_float(24, {0x56, 0x34, 0x12}), 0x123456 / 8388608.0f);
  EXPECT_EQ(to_float(24, {0xFF, 0xFF, 0x7F}), 8388607.0f / 8388608.0f);
  EXPECT_EQ(to_float(24, {0x00, 0x00, 0x80}), -1.0f);
  EXPECT_EQ(to_float(24, {0xFF, 0xFF, 0xFF}), -1.0f / 8388608.0f);
}

TEST(SampleConversion, LeavesTheFloatsOfOtherWidthsAsTheyAre) {
  EXPECT_EQ(to_float(8, {0x40}), 99.0f);
  EXPECT_EQ(to_float(32, {0, 0, 0, 0x40}), 99.0f);
}

TEST(SampleConversion, LeavesThePcmOfOtherWidthsAsItIs) {
  for (const std::uint16_t bits : {std::uint16_t{8}, std::uint16_t{32}}) {
    auto pcm = bytes_of({1, 2, 3, 4});
    float sample = 0.5f;
    float_to_pcm(bits, &sample, pcm.data(), 1);
    EXPECT_EQ(pcm, bytes_of({1, 2, 3, 4})) << bits;
  }
}

TEST(SampleConversion, TruncatesTowardZeroOnTheWayTo16Bits) {
  EXPECT_EQ(to_pcm(16, 1.75f / 32768.0f), 1);
  EXPECT_EQ(to_pcm(16, -1.75f / 32768.0f), -1);
  EXPECT_EQ(to_pcm(16, 0.99f / 32768.0f), 0);
  EXPECT_EQ(to_pcm(16, -0.99f / 32768.0f), 0);
}

TEST(SampleConversion, LimitsTo16BitsFromTheFirstValueBeyond) {
  EXPECT_EQ(to_pcm(16, 32767.0f / 32768.0f), 32767);
  EXPECT_EQ(to_pcm(16, 32767.5f / 32768.0f), 32767);
  EXPECT_EQ(to_pcm(16, 1.0f), 32767);
  EXPECT_EQ(to_pcm(16, 1e9f), 32767);
  EXPECT_EQ(to_pcm(16, -1.0f), -32768);
  EXPECT_EQ(to_pcm(16, -32768.5f / 32768.0f), -32768);
  EXPECT_EQ(to_pcm(16, -1e9f), -32768);
}

TEST(SampleConversion, TruncatesAndLimitsOnTheWayTo24Bits) {
  EXPECT_EQ(to_pcm(24, 1.75f / 8388608.0f), 1);
  EXPECT_EQ(to_pcm(24, -1.75f / 8388608.0f), -1);
  EXPECT_EQ(to_pcm(24, 8388607.0f / 8388608.0f), 8388607);
  EXPECT_EQ(to_pcm(24, 1.0f), 8388607);
  EXPECT_EQ(to_pcm(24, -1.0f), -8388608);
  EXPECT_EQ(to_pcm(24, 100.0f), 8388607);
  EXPECT_EQ(to_pcm(24, -100.0f), -8388608);
}

TEST(SampleConversion, MakesSilenceOfWhatIsNoNumber) {
  EXPECT_EQ(to_pcm(16, std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(to_pcm(24, std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(to_pcm(16, std::numeric_limits<float>::infinity()), 32767);
  EXPECT_EQ(to_pcm(24, -std::numeric_limits<float>::infinity()), -8388608);
}

TEST(SampleConversion, ScalesTheFloatsInPlace) {
  float sample = 0.5f;
  std::byte pcm[3];
  float_to_pcm(16, &sample, pcm, 1);
  EXPECT_EQ(sample, 16384.0f);
  sample = 0.5f;
  float_to_pcm(24, &sample, pcm, 1);
  EXPECT_EQ(sample, 4194304.0f);
}

TEST(SampleConversion, IsExactThereAndBackForEvery16BitSample) {
  for (std::int32_t value = -32768; value <= 32767; ++value) {
    std::byte pcm[2];
    const auto sample = static_cast<std::int16_t>(value);
    std::memcpy(pcm, &sample, sizeof sample);
    float wet = 0;
    pcm_to_float(16, pcm, &wet, 1);
    ASSERT_EQ(to_pcm(16, wet), value);
  }
}

TEST(SampleConversion, IsExactThereAndBackFor24BitSamplesOverTheWholeRange) {
  for (std::int32_t value = -8388608; value <= 8388607; value += 4099) {
    const auto bits = static_cast<std::uint32_t>(value);
    const std::byte pcm[3] = {static_cast<std::byte>(bits), static_cast<std::byte>(bits >> 8),
                              static_cast<std::byte>(bits >> 16)};
    float wet = 0;
    pcm_to_float(24, pcm, &wet, 1);
    ASSERT_EQ(to_pcm(24, wet), value);
  }
}

}  // namespace
}  // namespace sonivo::test
