#include "apps/tool/classic_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "apps/tool/command_line.h"
#include "apps/tool/wav_file.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "param_files.h"

namespace sonivo::tool {
namespace {

FloatAudio noise(std::uint16_t channels, std::size_t frames) {
  FloatAudio audio{48000, channels, {}};
  std::minstd_rand random(6);
  std::uniform_real_distribution<float> uniform(-0.4f, 0.4f);
  for (std::size_t i = 0; i < frames * channels; ++i) audio.samples.push_back(uniform(random));
  return audio;
}

/// What a chain makes of the audio in blocks, the last one filled up with silence.
template <class Chain>
std::vector<float> executed(Chain& chain, const FloatAudio& audio, std::size_t block_frames) {
  std::vector<float> samples = audio.samples;
  const std::size_t block = block_frames * audio.channels;
  samples.resize((samples.size() + block - 1) / block * block);
  for (std::size_t at = 0; at < samples.size(); at += block) EXPECT_EQ(chain.Execute(samples.data() + at), 0);
  samples.resize(audio.samples.size());
  return samples;
}

struct Outcome {
  int exit_code = 0;
  std::string output;
  std::string errors;
};

Outcome run(const std::vector<std::string>& arguments) {
  std::ostringstream output;
  std::ostringstream errors;
  const int exit_code = run_command_line(arguments, output, errors);
  return {exit_code, output.str(), errors.str()};
}

void expect_failure(const Outcome& outcome, int exit_code, const std::string& message) {
  EXPECT_EQ(outcome.exit_code, exit_code);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "error: " + message + "\n");
}

class ClassicCommand : public testing::Test {
 protected:
  std::vector<std::string> arguments(const std::string& chain, std::vector<std::string> options = {}) {
    const std::string params = chain == "keycancel" ? key_cancel_blob(folder_) : beam_forming_blob(folder_);
    std::vector<std::string> all{"classic", chain, folder_ / "in.wav", folder_ / "out.wav", "--params", params};
    all.insert(all.end(), options.begin(), options.end());
    return all;
  }

  FloatAudio processed(const std::string& chain, const FloatAudio& input, std::vector<std::string> options = {}) {
    write_input(input);
    const Outcome outcome = run(arguments(chain, std::move(options)));
    EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "");
    return read_wav_float(folder_ / "out.wav");
  }

  void write_input(const FloatAudio& input) {
    OutputFile file(folder_ / "in.wav");
    write_wav(file, input);
    file.commit();
  }

  const TemporaryFolder folder_;
};

TEST_F(ClassicCommand, SendsEveryChannelThroughTheKeyCancelChain) {
  for (std::uint16_t channels = 1; channels <= 4; ++channels) {
    const FloatAudio input = noise(channels, 10000);
    const FloatAudio output = processed("keycancel", input);
    EXPECT_EQ(output.rate_hz, 48000u);
    EXPECT_EQ(output.channels, channels);
    CKeyCancel chain;
    const auto param = classic::test::key_cancel_params();
    ASSERT_EQ(chain.Open(&param, 48000.0f, channels, 480), 0);
    EXPECT_EQ(output.samples, executed(chain, input, 480));
  }
}

TEST_F(ClassicCommand, SendsTwoMicrophonesThroughTheBeamFormingChain) {
  const FloatAudio input = noise(2, 10000);
  CBeamFormingKeyCancel chain;
  const auto param = classic::test::beam_forming_params();
  ASSERT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
  EXPECT_EQ(processed("beamforming", input).samples, executed(chain, input, 480));
}

TEST_F(ClassicCommand, TakesBlocksOfAnyLength) {
  const FloatAudio input = noise(1, 5000);
  const auto param = classic::test::key_cancel_params();
  for (const std::uint16_t frames : std::initializer_list<std::uint16_t>{1, 191, 441, 65535}) {
    CKeyCancel chain;
    ASSERT_EQ(chain.Open(&param, 48000.0f, 1, frames), 0);
    const auto output = processed("keycancel", input, {"--block", std::to_string(frames)});
    EXPECT_EQ(output.samples, executed(chain, input, frames)) << frames;
  }
}

TEST_F(ClassicCommand, IsLateByItsFramingAloneWithAllStagesOff) {
  const FloatAudio input = noise(2, 5000);
  for (const std::string chain : {"keycancel", "beamforming"}) {
    std::vector<std::string> off{"--key", "off", "--noise", "off"};
    if (chain == "beamforming") off.insert(off.end(), {"--beam", "off"});
    const FloatAudio output = processed(chain, input, off);
    constexpr std::size_t kLate = 96;  // blocks of 480 in frames of 192
    EXPECT_TRUE(
        std::all_of(output.samples.begin(), output.samples.begin() + 2 * kLate, [](float x) { return x == 0; }));
    for (std::size_t n = kLate; n < 5000; ++n) {
      ASSERT_EQ(output.samples[2 * n], input.samples[2 * (n - kLate)]) << chain << ' ' << n;
      const std::size_t heard = chain == "keycancel" ? 1 : 0;  // all channels bear the one beam
      ASSERT_EQ(output.samples[2 * n + 1], input.samples[2 * (n - kLate) + heard]) << chain << ' ' << n;
    }
  }
}

TEST_F(ClassicCommand, SwitchesItsStagesOneByOne) {
  const FloatAudio input = noise(2, 10000);
  const auto param = classic::test::beam_forming_params();
  const auto with = [&](std::uint16_t key, std::uint16_t noise_on, std::uint16_t beam) {
    CBeamFormingKeyCancel chain;
    EXPECT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
    chain.SetKeyReductionActive(key);
    chain.SetNoiseReductionActive(noise_on);
    chain.SetBeamFormingActive(beam);
    return executed(chain, input, 480);
  };
  EXPECT_EQ(processed("beamforming", input, {"--key", "off"}).samples, with(0, 1, 1));
  EXPECT_EQ(processed("beamforming", input, {"--noise", "off"}).samples, with(1, 0, 1));
  EXPECT_EQ(processed("beamforming", input, {"--beam", "off"}).samples, with(1, 1, 0));
  EXPECT_EQ(processed("beamforming", input, {"--key", "on", "--noise", "on", "--beam", "on"}).samples, with(1, 1, 1));
}

TEST_F(ClassicCommand, RefusesAFileWithoutAudio) {
  write_input(noise(2, 0));
  expect_failure(run(arguments("keycancel")), 1,
                 "'" + folder_ / "in.wav" + "' holds no audio; give a WAV file with audio in it");
}

TEST_F(ClassicCommand, WantsTwoMicrophonesForBeams) {
  write_input(noise(1, 1000));
  expect_failure(run(arguments("beamforming")), 1,
                 "'" + folder_ / "in.wav" + "' has one channel; the beamforming chain needs two microphones");
}

TEST_F(ClassicCommand, LeavesNothingBehindWhenItFails) {
  write_input(noise(2, 1000));
  const std::string blob = folder_.write("blob", "no blob");
  expect_failure(run({"classic", "keycancel", folder_ / "in.wav", folder_ / "out.wav", "--params", blob}), 1,
                 "'" + blob +
                     "' is no parameter blob of the keycancel chain, which has 15808 bytes; build one with sonivo "
                     "params build keycancel");
  EXPECT_EQ(folder_.entries(), (std::vector<std::string>{"blob", "in.wav"}));
}

TEST_F(ClassicCommand, RefusesToOverwriteItsParameters) {
  write_input(noise(2, 1000));
  const std::string blob = key_cancel_blob(folder_);
  const std::string before = bytes_of_file(blob);
  expect_failure(run({"classic", "keycancel", folder_ / "in.wav", blob, "--params", blob}), 1,
                 "'" + blob + "' is the parameter blob itself; choose another name for the output");
  EXPECT_EQ(bytes_of_file(blob), before);
}

TEST_F(ClassicCommand, RefusesTheBlobOfTheOtherChain) {
  write_input(noise(2, 1000));
  const std::string blob = beam_forming_blob(folder_);
  const Outcome outcome = run({"classic", "keycancel", folder_ / "in.wav", folder_ / "out.wav", "--params", blob});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.errors.starts_with("error: '" + blob + "' is no parameter blob of the keycancel chain"));
}

TEST_F(ClassicCommand, DoesNotOverwriteItsInput) {
  write_input(noise(1, 1000));
  const std::string before = bytes_of_file(folder_ / "in.wav");
  expect_failure(run({"classic", "keycancel", folder_ / "in.wav", folder_ / "in.wav"}), 1,
                 "'" + folder_ / "in.wav" + "' is the input itself; choose another name for the output");
  EXPECT_EQ(bytes_of_file(folder_ / "in.wav"), before);
}

TEST_F(ClassicCommand, RefusesWrongUsage) {
  expect_failure(run({"classic", "magic", "a.wav", "b.wav"}), 2, "CHAIN is keycancel or beamforming, not 'magic'");
  for (const std::string text : {"0", "65536", "-1", "1.5", "many"}) {
    expect_failure(run({"classic", "keycancel", "a.wav", "b.wav", "--block=" + text}), 2,
                   "--block takes 1 to 65535 frames, not '" + text + "'");
  }
  for (const std::string name : {"--key", "--noise", "--beam"}) {
    expect_failure(run({"classic", "keycancel", "a.wav", "b.wav", name, "maybe"}), 2,
                   name + " takes on or off, not 'maybe'");
  }
  expect_failure(run({"classic", "keycancel", "-", "b.wav"}), 2,
                 "IN must be a file: '-' for standard input is not supported");
  expect_failure(run({"classic", "keycancel", "a.wav", ""}), 2, "OUT takes the name of a file, not ''");
  EXPECT_EQ(run({"classic", "keycancel", "a.wav"}).exit_code, 2);
}

TEST_F(ClassicCommand, ShowsItsHelpWithAnExample) {
  const Outcome outcome = run({"classic", "--help"});
  EXPECT_EQ(outcome.exit_code, 0);
  for (const std::string text : {"--params", "--block", "--key", "--noise", "--beam", "Example:\n  sonivo classic "}) {
    EXPECT_NE(outcome.output.find(text), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace sonivo::tool
