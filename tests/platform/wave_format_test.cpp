#include "platform/wave_format.h"

#include <gtest/gtest.h>

#include <string>

namespace sonivo {
namespace {

TEST(WaveFormat, IsConsistentAsItIsMadeDownToOneFrameIn10Milliseconds) {
  EXPECT_TRUE(IsConsistent(pcm_format(48000, 16, 2)));
  EXPECT_TRUE(IsConsistent(pcm_format(44100, 24, 3)));
  EXPECT_TRUE(IsConsistent(pcm_format(100, 8, 1)));
}

TEST(WaveFormat, IsConsistentWhateverItsByteRate) {
  EXPECT_TRUE(IsConsistent([] {
    auto format = pcm_format(48000, 16, 2);
    format.nAvgBytesPerSec = 0;
    return format;
  }()));
}

struct Contradiction {
  const char* name;
  WAVEFORMATEXTENSIBLE format;
};

class WaveFormatThatContradictsItself : public ::testing::TestWithParam<Contradiction> {};

TEST_P(WaveFormatThatContradictsItself, IsNotConsistent) { EXPECT_FALSE(IsConsistent(GetParam().format)); }

/// 48 kHz 16-bit stereo, with something changed and all that follows from it left as it was.
WAVEFORMATEXTENSIBLE stereo_but(void (*change)(WAVEFORMATEXTENSIBLE&)) {
  WAVEFORMATEXTENSIBLE format = pcm_format(48000, 16, 2);
  change(format);
  return format;
}

INSTANTIATE_TEST_SUITE_P(
    With, WaveFormatThatContradictsItself,
    ::testing::Values(
        Contradiction{"Rate0", pcm_format(0, 16, 2)}, Contradiction{"Rate99", pcm_format(99, 16, 2)},
        Contradiction{"NoChannels", pcm_format(48000, 16, 0)}, Contradiction{"NoBits", pcm_format(48000, 0, 2)},
        Contradiction{"SamplesOfBrokenBytes", pcm_format(48000, 20, 2)},
        Contradiction{"SamplesOfOneBitMore", stereo_but([](auto& format) { format.wBitsPerSample = 17; })},
        Contradiction{"FramesWithoutChannels", stereo_but([](auto& format) { format.nChannels = 0; })},
        Contradiction{"FramesOfEmptySamples", stereo_but([](auto& format) { format.wBitsPerSample = 0; })},
        Contradiction{"PaddedFrames", stereo_but([](auto& format) {
                        format.nBlockAlign = 8;
                        format.nAvgBytesPerSec = 48000 * 8;
                      })},
        Contradiction{"ShortFrames", stereo_but([](auto& format) {
                        format.nBlockAlign = 3;
                        format.nAvgBytesPerSec = 48000 * 3;
                      })},
        Contradiction{"FramesOfMoreChannels", stereo_but([](auto& format) { format.nChannels = 3; })}),
    [](const ::testing::TestParamInfo<Contradiction>& with) { return std::string(with.param.name); });

}  // namespace
}  // namespace sonivo
