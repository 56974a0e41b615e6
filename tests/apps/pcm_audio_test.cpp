#include "apps/tool/pcm_audio.h"

#include <gtest/gtest.h>

#include <limits>

namespace sonivo::tool {
namespace {

std::vector<int> bytes_of(const PcmAudio& audio) {
  std::vector<int> values;
  for (const std::byte byte : audio.bytes) values.push_back(std::to_integer<int>(byte));
  return values;
}

PcmAudio audio_of(std::uint16_t bits) {
  PcmAudio audio;
  audio.bits = bits;
  return audio;
}

TEST(PcmAudio, KeepsASixteenBitSampleInSixteenBits) {
  PcmAudio audio = audio_of(16);
  append_left_justified(audio, -0x7FFE * 0x10000);
  EXPECT_EQ(bytes_of(audio), (std::vector{0x02, 0x80}));
}

TEST(PcmAudio, WidensASampleWithZeros) {
  PcmAudio audio = audio_of(24);
  append_left_justified(audio, 0x12340000);
  EXPECT_EQ(bytes_of(audio), (std::vector{0x00, 0x34, 0x12}));
}

TEST(PcmAudio, RoundsWhenItNarrows) {
  PcmAudio audio = audio_of(16);
  append_left_justified(audio, 0x00017FFF);
  append_left_justified(audio, 0x00018000);
  EXPECT_EQ(bytes_of(audio), (std::vector{0x01, 0x00, 0x02, 0x00}));
}

TEST(PcmAudio, ClipsWhatRoundsBeyondTheLargestSample) {
  PcmAudio audio = audio_of(16);
  append_left_justified(audio, std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(bytes_of(audio), (std::vector{0xFF, 0x7F}));
}

TEST(PcmAudio, ClipsFloatsBeyondFullScale) {
  PcmAudio audio = audio_of(24);
  append_float(audio, 1.5f);
  append_float(audio, -std::numeric_limits<float>::infinity());
  EXPECT_EQ(bytes_of(audio), (std::vector{0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x80}));
}

TEST(PcmAudio, TurnsNotANumberIntoSilence) {
  PcmAudio audio = audio_of(16);
  append_float(audio, std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(bytes_of(audio), (std::vector{0, 0}));
}

TEST(PcmAudio, ReadsBackWhatItHolds) {
  for (const std::uint16_t bits : {std::uint16_t{16}, std::uint16_t{24}}) {
    PcmAudio audio = audio_of(bits);
    for (const float sample : {0.5f, -0.25f, -1.f, 0.f}) append_float(audio, sample);
    EXPECT_EQ(sample_at(audio, 0), 0.5f);
    EXPECT_EQ(sample_at(audio, 1), -0.25f);
    EXPECT_EQ(sample_at(audio, 2), -1.f);
    EXPECT_EQ(sample_at(audio, 3), 0.f);
  }
}

TEST(PcmAudio, CountsFramesOfAllChannels) {
  PcmAudio audio = audio_of(24);
  audio.channels = 3;
  audio.bytes.resize(3 * 3 * 7);
  EXPECT_EQ(audio.frames(), 7u);
  EXPECT_EQ(audio.samples(), 21u);
}

}  // namespace
}  // namespace sonivo::tool
