#include "apps/tool/wav_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "apps/tool/failure.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

WavHeader parse(const std::string& bytes) {
  return read_wav_header("in.wav", bytes.size(), [&bytes](std::uint64_t offset, std::span<std::byte> target) {
    const std::size_t count = std::min<std::size_t>(target.size(), bytes.size() - std::min(bytes.size(), offset));
    std::memcpy(target.data(), bytes.data() + offset, count);
    return count;
  });
}

std::string complaint_about(const std::string& bytes) {
  try {
    parse(bytes);
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

TEST(WavHeader, TellsWhatAPlainFileHolds) {
  WavBytes wav;
  wav.channels = 2;
  wav.rate_hz = 44100;
  wav.bits = 24;
  wav.audio = std::string(6 * 5, 'x');
  const WavHeader header = parse(wav.text());
  EXPECT_EQ(header.coding, WavCoding::integer_pcm);
  EXPECT_EQ(header.channels, 2);
  EXPECT_EQ(header.rate_hz, 44100u);
  EXPECT_EQ(header.bits, 24);
  EXPECT_EQ(header.frames, 5u);
}

TEST(WavHeader, TellsFloatSamples) {
  WavBytes wav;
  wav.tag = 3;
  wav.bits = 32;
  wav.audio = std::string(8, 'x');
  EXPECT_EQ(parse(wav.text()).coding, WavCoding::ieee_float);
}

TEST(WavHeader, TakesTheCodingOfAnExtensibleFormatFromItsSubformat) {
  WavBytes wav;
  wav.tag = 0xFFFE;
  wav.channels = 4;
  wav.audio = std::string(8, 'x');
  EXPECT_EQ(parse(wav.text()).coding, WavCoding::integer_pcm);
  EXPECT_EQ(parse(wav.text()).frames, 1u);
}

TEST(WavHeader, SkipsOtherChunksAndTheirPadding) {
  WavBytes wav;
  wav.audio = "abcd";
  const std::string odd_chunk = "LIST" + little_endian(3, 4) + std::string("xyz\0", 4);
  EXPECT_EQ(parse(WavBytes::riff(odd_chunk + wav.format_chunk() + odd_chunk + wav.data_chunk())).frames, 2u);
}

TEST(WavHeader, CountsWholeFramesOnly) {
  WavBytes wav;
  wav.channels = 2;
  wav.audio = std::string(11, 'x');
  EXPECT_EQ(parse(wav.text()).frames, 2u);
}

TEST(WavHeader, RefusesAnEmptyFile) {
  EXPECT_EQ(complaint_about(""), "'in.wav' is empty; give a WAV file with audio in it");
}

TEST(WavHeader, RefusesWhatIsNoWavFile) {
  const std::string text = "'in.wav' is not a WAV file; convert it to one first, for example with sox";
  EXPECT_EQ(complaint_about("R"), text);
  EXPECT_EQ(complaint_about("RIFF....AVI fmt "), text);
  EXPECT_EQ(complaint_about("fLaC and more than twelve bytes"), text);
}

TEST(WavHeader, RefusesAFileThatEndsBeforeItsAudio) {
  const std::string text = "'in.wav' is truncated: it ends before its audio starts; make or copy it again";
  EXPECT_EQ(complaint_about(WavBytes::riff("")), text);
  EXPECT_EQ(complaint_about(WavBytes::riff(WavBytes().format_chunk())), text);
  EXPECT_EQ(complaint_about(WavBytes::riff(WavBytes().format_chunk().substr(0, 20))), text);
  EXPECT_EQ(complaint_about(WavBytes::riff("junk" + little_endian(0xFFFFFFFF, 4))), text);
}

TEST(WavHeader, RefusesAudioThatIsPromisedButNotThere) {
  WavBytes wav;
  wav.audio = std::string(10, 'x');
  wav.data_size = 1000;
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' is truncated: its header promises 1000 bytes of audio, the file holds 10; make or copy it again");
}

TEST(WavHeader, RefusesAFileWithoutAudio) {
  EXPECT_EQ(complaint_about(WavBytes().text()), "'in.wav' holds no audio; give a WAV file with audio in it");
}

TEST(WavHeader, RefusesAudioBeforeItsFormat) {
  WavBytes wav;
  wav.audio = "abcd";
  EXPECT_EQ(complaint_about(WavBytes::riff(wav.data_chunk() + wav.format_chunk())),
            "'in.wav' is damaged: its audio comes before its format; make or copy it again");
}

TEST(WavHeader, RefusesBytesWhereAChunkShouldStart) {
  EXPECT_EQ(complaint_about(WavBytes::riff(std::string(8, '\0'))),
            "'in.wav' is damaged: there is no chunk where one should start; make or copy it again");
}

TEST(WavHeader, RefusesAFormatThatIsTooShort) {
  EXPECT_EQ(complaint_about(WavBytes::riff("fmt " + little_endian(14, 4) + std::string(14, '\1'))),
            "'in.wav' is damaged: its format is too short; make or copy it again");
}

TEST(WavHeader, RefusesFramesOfAnotherSizeThanTheFormatNeeds) {
  WavBytes wav;
  wav.channels = 2;
  wav.block_align = 3;
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' is damaged: its frames have 3 bytes where its format needs 4; make or copy it again");
}

TEST(WavHeader, RefusesChannelCountsThatCannotBeRelayed) {
  WavBytes wav;
  wav.channels = 0;
  EXPECT_EQ(complaint_about(wav.text()), "'in.wav' has 0 channels; give one with 1 to 4");
  wav.channels = 9;
  EXPECT_EQ(complaint_about(wav.text()), "'in.wav' has 9 channels; give one with 1 to 4");
}

TEST(WavHeader, RefusesOtherSamplingRates) {
  WavBytes wav;
  wav.rate_hz = 22050;
  EXPECT_EQ(complaint_about(wav.text()), "'in.wav' has a sampling rate of 22050 Hz; convert it to 48000 or 44100 Hz");
}

TEST(WavHeader, RefusesOtherSampleWidths) {
  WavBytes wav;
  wav.bits = 8;
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' has 8-bit samples; convert them to 16, 24 or 32-bit PCM or 32-bit float");
  wav.tag = 3;
  wav.bits = 64;
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' has 64-bit float samples; convert them to 16, 24 or 32-bit PCM or 32-bit float");
}

TEST(WavHeader, RefusesCodedAudio) {
  WavBytes wav;
  wav.tag = 85;
  EXPECT_EQ(complaint_about(wav.text()), "'in.wav' is coded (format 85); convert it to PCM or float samples");
}

}  // namespace
}  // namespace sonivo::tool
