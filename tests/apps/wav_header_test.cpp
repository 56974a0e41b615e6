#include "apps/tool/wav_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "apps/tool/failure.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

WavHeader parse(const std::string& bytes, std::uint64_t file_bytes, WavRates rates = WavRates::of_devices) {
  const ReadAt read_at = [&bytes](std::uint64_t offset, std::span<std::byte> target) {
    const std::size_t count = std::min<std::size_t>(target.size(), bytes.size() - std::min(bytes.size(), offset));
    std::memcpy(target.data(), bytes.data() + offset, count);
    return count;
  };
  return read_wav_header("in.wav", file_bytes, read_at, rates);
}

WavHeader parse(const std::string& bytes) { return parse(bytes, bytes.size()); }

std::string complaint_about(const std::string& bytes, std::uint64_t file_bytes, WavRates rates = WavRates::of_devices) {
  try {
    parse(bytes, file_bytes, rates);
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

std::string complaint_about(const std::string& bytes) { return complaint_about(bytes, bytes.size()); }

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

TEST(WavHeader, TakesAnySaneRateWhereAskedTo) {
  WavBytes wav;
  wav.audio = "xx";
  for (const std::uint32_t rate : {1000u, 16000u, 44100u, 384000u}) {
    wav.rate_hz = rate;
    EXPECT_EQ(parse(wav.text(), wav.text().size(), WavRates::any).rate_hz, rate);
  }
  for (const std::uint32_t rate : {0u, 999u, 384001u}) {
    wav.rate_hz = rate;
    EXPECT_EQ(
        complaint_about(wav.text(), wav.text().size(), WavRates::any),
        "'in.wav' has a sampling rate of " + std::to_string(rate) + " Hz; convert it to one from 1000 to 384000 Hz");
  }
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

TEST(WavHeader, TakesAnUnknownSizeAsAllUpToTheEnd) {
  WavBytes wav;
  wav.channels = 2;
  wav.data_size = 0xFFFFFFFF;
  for (const std::size_t bytes : {8u, 9u, 11u}) {
    wav.audio = std::string(bytes, 'x');
    EXPECT_EQ(parse(wav.text()).frames, 2u) << bytes;
  }
}

TEST(WavHeader, RefusesAnUnknownSizeThatTurnsOutToBeNone) {
  WavBytes wav;
  wav.data_size = 0xFFFFFFFF;
  const std::string text = "'in.wav' holds no audio; give a WAV file with audio in it";
  EXPECT_EQ(complaint_about(wav.text()), text);
  wav.audio = "x";
  EXPECT_EQ(complaint_about(wav.text()), text);
}

TEST(WavHeader, RefusesAnUnknownSizeBeyondThatOfAWavFile) {
  WavBytes wav;
  wav.data_size = 0xFFFFFFFF;
  const std::string head = wav.text();
  EXPECT_EQ(complaint_about(head, head.size() + 0x100000000),
            "'in.wav' holds more than the 4 GiB of a WAV file; cut it into shorter ones");
}

TEST(WavHeader, RefusesAPartOfAFrame) {
  WavBytes wav;
  wav.channels = 2;
  wav.audio = std::string(11, 'x');
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' is damaged: its 11 bytes of audio do not end with a whole frame of 4; make or copy it again");
  wav.audio = "abc";
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' is damaged: its 3 bytes of audio do not end with a whole frame of 4; make or copy it again");
}

TEST(WavHeader, RefusesASizeThatWasNeverFilledIn) {
  WavBytes wav;
  wav.audio = std::string(10, 'x');
  wav.data_size = 0;
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' promises no audio in its header, though 10 bytes follow; if they are audio, mend it with "
            "sox --ignore-length");
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

TEST(WavHeader, RefusesFilesOf64Bits) {
  WavBytes wav;
  wav.audio = "abcd";
  for (const std::string name : {"RF64", "BW64"}) {
    EXPECT_EQ(complaint_about(WavBytes::riff(wav.format_chunk() + wav.data_chunk(), name)),
              "'in.wav' is a 64-bit WAV file (" + name + "), which is not supported; convert it to plain WAV");
  }
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

TEST(WavHeader, RefusesSecondsOfAnotherSizeThanTheFormatNeeds) {
  WavBytes wav;
  wav.channels = 2;
  wav.byte_rate = 96000;
  EXPECT_EQ(complaint_about(wav.text()),
            "'in.wav' is damaged: its seconds have 96000 bytes where its format needs 192000; make or copy it again");
}

TEST(WavHeader, RefusesValidBitsThatItsSamplesCannotHave) {
  WavBytes wav;
  wav.tag = 0xFFFE;
  wav.bits = 24;
  for (const std::uint16_t valid : {std::uint16_t{0}, std::uint16_t{25}, std::uint16_t{65535}}) {
    wav.valid_bits = valid;
    EXPECT_EQ(complaint_about(wav.text()), "'in.wav' is damaged: it says that " + std::to_string(valid) +
                                               " bits of its 24-bit samples are valid; make or copy it again");
  }
}

TEST(WavHeader, TakesSamplesThatAreNotValidToTheLastBit) {
  WavBytes wav;
  wav.tag = 0xFFFE;
  wav.bits = 24;
  wav.audio = "abcdef";
  for (const std::uint16_t valid : {std::uint16_t{1}, std::uint16_t{20}, std::uint16_t{24}}) {
    wav.valid_bits = valid;
    EXPECT_EQ(parse(wav.text()).bits, 24);
    EXPECT_EQ(parse(wav.text()).frames, 2u);
  }
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

TEST(WavHeader, TakesTheRateOfModelsWhereItIsAskedTo) {
  WavBytes wav;
  wav.rate_hz = 16000;
  wav.audio = "abcd";
  const std::string text = wav.text();
  EXPECT_EQ(parse(text, text.size(), WavRates::of_devices_and_models).rate_hz, 16000u);
  EXPECT_EQ(complaint_about(text), "'in.wav' has a sampling rate of 16000 Hz; convert it to 48000 or 44100 Hz");
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
