#include "apps/tool/relay_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <tuple>

#include "apps/tool/command_line.h"
#include "apps/tool/latency.h"
#include "apps/tool/wav_file.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

PcmAudio noise(std::uint32_t rate_hz, std::uint16_t bits, std::uint16_t channels, std::size_t frames) {
  PcmAudio audio;
  audio.rate_hz = rate_hz;
  audio.bits = bits;
  audio.channels = channels;
  std::minstd_rand random(rate_hz + bits + channels);
  audio.bytes.resize(frames * audio.bytes_per_frame());
  for (std::byte& byte : audio.bytes) byte = static_cast<std::byte>(random() >> 8);
  return audio;
}

void write_input(const std::string& path, const PcmAudio& audio) {
  OutputFile file(path);
  write_wav(file, audio);
  file.commit();
}

/// Frames of silence before the first other one.
std::size_t leading_zero_frames(const PcmAudio& audio) {
  const auto first =
      std::find_if(audio.bytes.begin(), audio.bytes.end(), [](std::byte b) { return b != std::byte{0}; });
  return static_cast<std::size_t>(first - audio.bytes.begin()) / audio.bytes_per_frame();
}

/// OUT is IN, bit for bit, between silence and silence.
void expect_exact(const PcmAudio& input, const PcmAudio& output, std::size_t latency) {
  ASSERT_GE(output.frames(), latency + input.frames());
  const auto begin = output.bytes.begin() + static_cast<std::ptrdiff_t>(latency * output.bytes_per_frame());
  const auto end = begin + static_cast<std::ptrdiff_t>(input.bytes.size());
  EXPECT_TRUE(std::equal(begin, end, input.bytes.begin()));
  EXPECT_TRUE(std::all_of(output.bytes.begin(), begin, [](std::byte b) { return b == std::byte{0}; }));
  EXPECT_TRUE(std::all_of(end, output.bytes.end(), [](std::byte b) { return b == std::byte{0}; }));
}

struct Outcome {
  int exit_code = 0;
  std::string table;
  std::string errors;
  PcmAudio output;
};

class RelayCommand : public testing::Test {
 protected:
  Outcome relay(const PcmAudio& input, std::vector<std::string> options = {}) {
    write_input(folder_ / "in.wav", input);
    std::vector<std::string> arguments{"relay", folder_ / "in.wav", folder_ / "out.wav"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::ostringstream output;
    std::ostringstream errors;
    const int exit_code = run_command_line(arguments, output, errors);
    if (exit_code != 0) return {exit_code, output.str(), errors.str(), {}};
    return {exit_code, output.str(), errors.str(), read_wav(folder_ / "out.wav", std::nullopt)};
  }

  const TemporaryFolder folder_;
};

using Shape = std::tuple<unsigned, unsigned, unsigned, unsigned>;  // rate, bits, channels, period

class RelayCommandShapes : public RelayCommand, public testing::WithParamInterface<Shape> {};

TEST_P(RelayCommandShapes, CarriesTheMicrophoneBitForBit) {
  const auto [rate_hz, bits, channels, period] = GetParam();
  const PcmAudio input =
      noise(rate_hz, static_cast<std::uint16_t>(bits), static_cast<std::uint16_t>(channels), rate_hz / 2 + 17);
  const Outcome run = relay(input, {"--period", std::to_string(period)});
  ASSERT_EQ(run.exit_code, 0) << run.errors;
  EXPECT_EQ(run.output.rate_hz, rate_hz);
  EXPECT_EQ(run.output.bits, bits);
  EXPECT_EQ(run.output.channels, channels);
  expect_exact(input, run.output, leading_zero_frames(run.output));
  EXPECT_NE(run.table.find("underruns         0\noverruns          0\n"), std::string::npos) << run.table;
}

INSTANTIATE_TEST_SUITE_P(Formats, RelayCommandShapes,
                         testing::Combine(testing::Values(44100u, 48000u), testing::Values(16u, 24u),
                                          testing::Values(1u, 2u, 3u, 4u), testing::Values(480u)));
INSTANTIATE_TEST_SUITE_P(Periods, RelayCommandShapes,
                         testing::Combine(testing::Values(44100u, 48000u), testing::Values(16u), testing::Values(2u),
                                          testing::Values(48u, 100u, 441u, 512u, 960u, 1024u, 1441u, 2048u)));

TEST_F(RelayCommand, MeasuresTheLatencyThatTheOutputHas) {
  const PcmAudio input = noise(48000, 16, 2, 24000);
  const Outcome run = relay(input);
  const std::size_t latency = leading_zero_frames(run.output);
  EXPECT_NE(run.table.find("latency           " + std::to_string(latency) + " frames, "), std::string::npos)
      << run.table;
}

TEST_F(RelayCommand, HasTheSameOutputInEveryRun) {
  const PcmAudio input = noise(48000, 16, 1, 24000);
  EXPECT_EQ(relay(input, {"--drift", "321.5"}).output.bytes, relay(input, {"--drift", "321.5"}).output.bytes);
}

TEST_F(RelayCommand, WidensAndNarrowsAsTold) {
  const PcmAudio input = noise(48000, 16, 1, 4800);
  const PcmAudio wide = relay(input, {"--bits", "24"}).output;
  EXPECT_EQ(wide.bits, 24);
  const std::size_t latency = leading_zero_frames(wide);
  for (std::size_t i = 0; i < input.samples(); ++i) {
    ASSERT_EQ(sample_at(wide, latency + i), sample_at(input, i)) << i;
  }
}

TEST_F(RelayCommand, SaysThatSilenceHasNoLatency) {
  PcmAudio input = noise(48000, 16, 2, 4800);
  std::fill(input.bytes.begin(), input.bytes.end(), std::byte{0});
  EXPECT_NE(relay(input).table.find("not measurable: the input is silent"), std::string::npos);
}

TEST_F(RelayCommand, CarriesASingleFrame) {
  PcmAudio input;
  append_float(input, 0.5f);
  const PcmAudio output = relay(input).output;
  expect_exact(input, output, leading_zero_frames(output));
}

TEST_F(RelayCommand, PlaysToTheSpeakerWithAFadeInAndThenBitForBit) {
  const PcmAudio input = noise(48000, 16, 2, 24000);
  const Outcome run = relay(input, {"--render"});
  ASSERT_EQ(run.exit_code, 0) << run.errors;
  const Latency latency = measure_latency(input, run.output, 9600);
  ASSERT_EQ(latency.outcome, Latency::Outcome::measured);
  // The gain has come to within 0.001 of 1 after 6905 frames, as 0.999^6905 < 0.001.
  constexpr std::size_t kFadeFrames = 6905 + 480;
  const std::size_t frame = input.bytes_per_frame();
  ASSERT_GE(run.output.frames(), latency.frames + input.frames());
  EXPECT_TRUE(
      std::equal(input.bytes.begin() + static_cast<std::ptrdiff_t>(kFadeFrames * frame), input.bytes.end(),
                 run.output.bytes.begin() + static_cast<std::ptrdiff_t>((latency.frames + kFadeFrames) * frame)));
  EXPECT_NE(run.table.find("ms application to speaker\n"), std::string::npos) << run.table;
}

TEST_F(RelayCommand, TracesWithTheVirtualTime) {
  const Outcome run = relay(noise(48000, 16, 1, 4800), {"--verbose"});
  std::istringstream lines(run.errors);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_TRUE(line.starts_with("[") && line.find(" s] ") != std::string::npos) << line;
  }
  EXPECT_GT(count, 0u);
}

TEST_F(RelayCommand, TakesAStreamedFileForItsWholeLength) {
  WavBytes wav;
  wav.data_size = 0xFFFFFFFF;
  wav.audio = std::string(9600, 'x');
  folder_.write("in.wav", wav.text());
  std::ostringstream output;
  std::ostringstream errors;
  const std::vector<std::string> arguments{"relay", folder_ / "in.wav", folder_ / "out.wav"};
  ASSERT_EQ(run_command_line(arguments, output, errors), 0) << errors.str();
  wav.data_size = 9600;
  const PcmAudio input = read_wav(folder_.write("plain.wav", wav.text()), std::nullopt);
  const PcmAudio relayed = read_wav(folder_ / "out.wav", std::nullopt);
  expect_exact(input, relayed, leading_zero_frames(relayed));
}

TEST_F(RelayCommand, LeavesNothingBehindWhenItFails) {
  folder_.write("in.wav", "no WAV");
  std::ostringstream output;
  std::ostringstream errors;
  const std::vector<std::string> arguments{"relay", folder_ / "in.wav", folder_ / "out.wav"};
  EXPECT_EQ(run_command_line(arguments, output, errors), 1);
  EXPECT_EQ(folder_.entries(), std::vector<std::string>{"in.wav"});
  EXPECT_EQ(output.str(), "");
}

}  // namespace
}  // namespace sonivo::tool
