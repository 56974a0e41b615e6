#include "apps/tool/wav_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <bit>
#include <csignal>
#include <limits>

#include "apps/tool/failure.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

template <typename Action>
std::string complaint_of(Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "none";
}

std::vector<std::byte> as_bytes(const std::string& text) {
  std::vector<std::byte> bytes;
  for (const char letter : text) bytes.push_back(static_cast<std::byte>(letter));
  return bytes;
}

TEST(ReadWav, TakesIntegerSamplesOfTheStreamWidthAsTheyAre) {
  const TemporaryFolder folder;
  for (const std::uint16_t bits : {std::uint16_t{16}, std::uint16_t{24}}) {
    WavBytes wav;
    wav.channels = 2;
    wav.bits = bits;
    for (int i = 0; i < 12 * bits; ++i) wav.audio.push_back(static_cast<char>(37 * i + 11));
    const PcmAudio audio = read_wav(folder.write("in.wav", wav.text()), std::nullopt);
    EXPECT_EQ(audio.bits, bits);
    EXPECT_EQ(audio.channels, 2);
    EXPECT_EQ(audio.bytes, as_bytes(wav.audio));
  }
}

TEST(ReadWav, BringsWiderFilesTo24BitsUnlessTold) {
  const TemporaryFolder folder;
  WavBytes wav;
  wav.bits = 32;
  wav.audio = std::string("\x00\x56\x34\x12", 4);
  const std::string path = folder.write("in.wav", wav.text());
  EXPECT_EQ(read_wav(path, std::nullopt).bytes, as_bytes("\x56\x34\x12"));
  EXPECT_EQ(read_wav(path, 16).bytes, as_bytes("\x34\x12"));
}

TEST(ReadWav, BringsFloatsTo24BitsAndClipsThem) {
  const TemporaryFolder folder;
  WavBytes wav;
  wav.tag = 3;
  wav.bits = 32;
  for (const float x : {0.5f, 2.f, -2.f, std::numeric_limits<float>::quiet_NaN()}) {
    wav.audio += little_endian(std::bit_cast<std::uint32_t>(x), 4);
  }
  const PcmAudio audio = read_wav(folder.write("in.wav", wav.text()), std::nullopt);
  EXPECT_EQ(audio.bytes, as_bytes(std::string("\x00\x00\x40\xFF\xFF\x7F\x00\x00\x80\x00\x00\x00", 12)));
}

TEST(ReadWav, ReadsFilesThatAreLongerThanAChunk) {
  const TemporaryFolder folder;
  WavBytes wav;
  wav.channels = 4;
  for (int i = 0; i < 8 * 9001; ++i) wav.audio.push_back(static_cast<char>(i * 7 + i / 251));
  EXPECT_EQ(read_wav(folder.write("in.wav", wav.text()), 16).bytes, as_bytes(wav.audio));
}

TEST(ReadWav, ReadsToTheEndWhatHasNoSize) {
  const TemporaryFolder folder;
  WavBytes wav;
  wav.channels = 2;
  wav.data_size = 0xFFFFFFFF;
  wav.audio = "abcdefgh";
  EXPECT_EQ(read_wav(folder.write("in.wav", wav.text()), std::nullopt).bytes, as_bytes("abcdefgh"));
  wav.audio = "abcdefghijk";
  EXPECT_EQ(read_wav(folder.write("in.wav", wav.text()), std::nullopt).bytes, as_bytes("abcdefgh"));
}

TEST(ReadWav, ReadsToTheEndWhatHasNoSizeInAnyFormat) {
  const TemporaryFolder folder;
  WavBytes wav;
  wav.tag = 0xFFFE;
  wav.bits = 24;
  wav.valid_bits = 20;
  wav.data_size = 0xFFFFFFFF;
  wav.audio = "abcdefg";  // a byte of padding
  EXPECT_EQ(read_wav(folder.write("in.wav", wav.text()), std::nullopt).bytes, as_bytes("abcdef"));
}

TEST(ReadWav, RefusesAFileThatIsNotThere) {
  EXPECT_EQ(complaint_of([] { read_wav("/nowhere/in.wav", 16); }),
            "cannot open '/nowhere/in.wav': No such file or directory; check its name and its permissions");
}

TEST(ReadWav, RefusesAFolder) {
  const TemporaryFolder folder;
  const std::string path = folder.path();
  EXPECT_EQ(complaint_of([&] { read_wav(path, 16); }), "'" + path + "' is a folder; give a WAV file");
}

TEST(ReadWav, RefusesAPipeWithoutWaitingForIt) {
  const TemporaryFolder folder;
  const std::string path = folder / "pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(complaint_of([&] { read_wav(path, 16); }),
            "'" + path + "' is a pipe or a device; write the audio to a file first");
}

TEST(ReadWav, NamesTheFileInTheComplaintsOfItsHead) {
  const TemporaryFolder folder;
  const std::string path = folder.write("in.wav", "");
  EXPECT_EQ(complaint_of([&] { read_wav(path, 16); }), "'" + path + "' is empty; give a WAV file with audio in it");
}

TEST(WriteWav, ReadsBackEqual) {
  const TemporaryFolder folder;
  for (const std::uint16_t bits : {std::uint16_t{16}, std::uint16_t{24}}) {
    PcmAudio audio;
    audio.bits = bits;
    audio.rate_hz = 44100;
    audio.channels = 3;
    for (int i = 0; i < 9 * bits; ++i) audio.bytes.push_back(static_cast<std::byte>(i * 31));
    OutputFile file(folder / "out.wav");
    write_wav(file, audio);
    file.commit();
    const PcmAudio copy = read_wav(folder / "out.wav", std::nullopt);
    EXPECT_EQ(copy.bits, bits);
    EXPECT_EQ(copy.rate_hz, 44100u);
    EXPECT_EQ(copy.channels, 3);
    EXPECT_EQ(copy.bytes, audio.bytes);
  }
}

TEST(WriteWav, AFullDiskIsAnErrorAndLeavesNothing) {
  const TemporaryFolder folder;
  const auto previous_action = std::signal(SIGXFSZ, SIG_IGN);
  rlimit previous{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &previous), 0);
  PcmAudio audio;
  audio.bytes.resize(100000);
  const std::string path = folder / "out.wav";
  const std::string complaint = complaint_of([&] {
    OutputFile file(path);
    rlimit small = previous;
    small.rlim_cur = 20000;
    ::setrlimit(RLIMIT_FSIZE, &small);
    write_wav(file, audio);
  });
  ::setrlimit(RLIMIT_FSIZE, &previous);
  std::signal(SIGXFSZ, previous_action);
  EXPECT_EQ(complaint, "cannot write '" + path + "': File too large; make room or choose another folder");
  EXPECT_TRUE(folder.entries().empty());
}

TEST(WriteWav, WritesNothingThatDependsOnTheTime) {
  const TemporaryFolder folder;
  const std::string path = folder / "out.wav";
  OutputFile file(path);
  write_wav(file, FloatAudio{48000, 1, {0.25f, -0.5f}});
  file.commit();
  EXPECT_EQ(bytes_of_file(path).find("PEAK"), std::string::npos);  // it begins with the time of writing
}

TEST(WavStreams, HoldInPiecesWhatAWholeFileHolds) {
  const TemporaryFolder folder;
  FloatAudio audio{44100, 2, {}};
  for (int i = 0; i < 2000; ++i) audio.samples.push_back(static_cast<float>(i - 1000) / 1024);
  {
    OutputFile whole(folder / "whole.wav");
    write_wav(whole, audio);
    whole.commit();
  }
  OutputFile file(folder / "pieces.wav");
  WavOutput output(file, 44100, 2, audio.frames());
  for (std::size_t at = 0; at < 2000; at += 400) output.write(std::span(audio.samples).subspan(at, 400));
  output.close();
  file.commit();
  EXPECT_EQ(bytes_of_file(folder / "pieces.wav"), bytes_of_file(folder / "whole.wav"));

  WavInput input(folder / "pieces.wav", WavRates::of_devices);
  EXPECT_EQ(input.header().frames, 1000u);
  std::vector<float> samples(2 * 300);
  std::vector<float> read;
  for (const std::size_t frames : {300u, 300u, 300u, 100u, 0u}) {
    EXPECT_EQ(input.read(samples), frames);
    read.insert(read.end(), samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(2 * frames));
  }
  EXPECT_EQ(read, audio.samples);
}

TEST(WavStreams, RefuseMoreThanAFileHolds) {
  const TemporaryFolder folder;
  OutputFile file(folder / "out.wav");
  EXPECT_EQ(complaint_of([&] { WavOutput(file, 48000, 1, std::uint64_t{1} << 30); }),
            "the result does not fit into a WAV file of 4 GiB; process a shorter one");
}

}  // namespace
}  // namespace sonivo::tool
