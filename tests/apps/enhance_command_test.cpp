#include "apps/tool/enhance_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

#include "../support/temporary_folder.h"
#include "apps/tool/command_line.h"
#include "apps/tool/wav_file.h"
#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "model_text.h"

namespace sonivo::tool {
namespace {

using sonivo::test::TemporaryFolder;

/// A layer that is late by so many samples.
std::string delay_layer(std::size_t samples) {
  const std::string width = std::to_string(samples);
  return R"(<layer type="TDNN" id="first" groups="true" causal="true" kernel="2" dilation=")" + width + R"(" pad=")" +
         width + R"("><weight>1
0</weight><bias>0</bias></layer>)";
}

/// One that gives every second sample.
const char* const kHalf =
    R"(<layer type="TDNN" id="first" kernel="2" stride="2"><weight>1
0</weight><bias>0</bias></layer>)";

/// One that gives every sample twice.
const char* const kTwice =
    R"(<layer type="TransposeTDNN" id="first" kernel="2" stride="2"><weight>1
1</weight><bias>0</bias></layer>)";

std::string model_text(const std::vector<double>& gains, const std::string& first = "",
                       const NamedValues& options = {}) {
  return test::model_text({.gains = gains, .first = first, .options = options});
}

/// Noise of 16 bits.
FloatAudio sixteen_bit_noise(std::uint32_t rate_hz, std::uint16_t channels, std::size_t frames) {
  FloatAudio audio{rate_hz, channels, {}};
  std::minstd_rand random(8);
  std::uniform_int_distribution<int> uniform(-9000, 9000);
  for (std::size_t i = 0; i < frames * channels; ++i)
    audio.samples.push_back(static_cast<float>(uniform(random)) / 32768);
  return audio;
}

class EnhanceCommand : public testing::Test {
 protected:
  int run(std::vector<std::string> options = {}) {
    std::vector<std::string> all{"enhance", folder_ / "model", folder_ / "in.wav", folder_ / "out.wav"};
    all.insert(all.end(), options.begin(), options.end());
    output_.str("");
    errors_.str("");
    return run_command_line(all, output_, errors_);
  }

  void write(const std::string& model, const FloatAudio& input) {
    std::ofstream(folder_ / "model") << model;
    OutputFile file(folder_ / "in.wav");
    write_wav(file, input);
    file.commit();
  }

  FloatAudio enhanced(std::vector<std::string> options = {}) {
    EXPECT_EQ(run(std::move(options)), 0) << errors_.str();
    EXPECT_EQ(errors_.str(), "");
    WavInput wav(folder_ / "out.wav", WavRates::of_devices_and_models);
    FloatAudio audio{wav.header().rate_hz, wav.header().channels, {}};
    audio.samples.resize(wav.header().frames * audio.channels);
    EXPECT_EQ(wav.read(audio.samples), wav.header().frames);
    return audio;
  }

  void expect_failure(const std::string& message, std::vector<std::string> options = {}, int exit_code = 1) {
    EXPECT_EQ(run(std::move(options)), exit_code);
    EXPECT_EQ(output_.str(), "");
    EXPECT_EQ(errors_.str(), "error: " + message + "\n");
    EXPECT_FALSE(std::ifstream(folder_ / "out.wav").is_open());
  }

  std::string path(const char* name) const { return "'" + (folder_ / name) + "'"; }

  const TemporaryFolder folder_;
  std::ostringstream output_, errors_;
};

TEST_F(EnhanceCommand, GivesTheFirstRowBackExactlyAtStrength0) {
  const FloatAudio input = sixteen_bit_noise(16000, 1, 5003);
  write(model_text({1, 0.5}, delay_layer(240)), input);
  const FloatAudio output = enhanced({"--strength", "0"});
  EXPECT_EQ(output.rate_hz, 16000u);
  EXPECT_EQ(output.samples, input.samples);
  EXPECT_EQ(output_.str().substr(0, 54), "delay             240 frames, 15.0 ms, taken out\nreal-");
}

TEST_F(EnhanceCommand, TruncatesTheSecondRowToSixteenBitsAtStrength1) {
  const FloatAudio input = sixteen_bit_noise(16000, 1, 2000);
  write(model_text({1, 0.5}), input);
  const FloatAudio output = enhanced();
  for (std::size_t i = 0; i < 2000; ++i) {
    ASSERT_EQ(output.samples[i], std::trunc(input.samples[i] * 16384) / 32768) << i;
  }
}

TEST_F(EnhanceCommand, WrapsAtFullScale) {
  FloatAudio input = sixteen_bit_noise(16000, 1, 2000);
  input.samples[100] = 0.75f;
  input.samples[101] = -0.75f;
  write(model_text({1, 2}), input);
  const FloatAudio output = enhanced();
  EXPECT_EQ(output.samples[100], -1);
  EXPECT_EQ(output.samples[101], -1);
}

TEST_F(EnhanceCommand, MixesAsStrengthAndSwitchingSay) {
  const FloatAudio input{16000, 1, std::vector<float>(1000, 0.5f)};
  write(model_text({1, 0.5, 0.25}, "", {{"is-switching-se", "true"}}), input);
  EXPECT_EQ(enhanced().samples[500], 0.125f);
  EXPECT_EQ(enhanced({"--switching", "0"}).samples[500], 0.25f);
  EXPECT_EQ(enhanced({"--switching", "0.5"}).samples[500], 0.1875f);
  EXPECT_EQ(enhanced({"--switching", "0.5", "--strength", "0.5"}).samples[500], 0.34375f);
}

TEST_F(EnhanceCommand, MixesChannelsToTheirMean) {
  const FloatAudio input = sixteen_bit_noise(16000, 4, 1000);
  write(model_text({1}), input);
  const FloatAudio output = enhanced();
  ASSERT_EQ(output.channels, 1);
  for (std::size_t i = 0; i < 1000; ++i) {
    const float sum =
        input.samples[4 * i] + input.samples[4 * i + 1] + input.samples[4 * i + 2] + input.samples[4 * i + 3];
    ASSERT_EQ(output.samples[i], std::trunc(sum / 4 * 32768) / 32768) << i;
  }
}

TEST_F(EnhanceCommand, LeavesTheDelayOfAStreamThatIsRaw) {
  const FloatAudio input = sixteen_bit_noise(16000, 1, 3000);
  write(model_text({1}, delay_layer(240)), input);
  const FloatAudio output = enhanced({"--raw"});
  ASSERT_EQ(output.samples.size(), 3000u);
  EXPECT_TRUE(std::all_of(output.samples.begin(), output.samples.begin() + 240, [](float x) { return x == 0; }));
  EXPECT_TRUE(std::equal(output.samples.begin() + 240, output.samples.end(), input.samples.begin()));
  EXPECT_EQ(output_.str().substr(0, 18), "real-time factor  ");
}

/// What both FIFOs make of the audio, behind each other, without a model and without leading silence.
std::vector<float> converted(const FloatAudio& audio, std::size_t blocks) {
  const auto rate = static_cast<int>(audio.rate_hz);
  const std::uint32_t block = device_frame(rate);
  std::vector<float> samples = audio.samples, result(blocks * block);
  samples.resize(result.size());
  FifoInput in;
  FifoOutput out;
  const auto size = static_cast<std::uint32_t>(samples.size());
  EXPECT_TRUE(in.BuffInit(size, rate, 5));
  EXPECT_TRUE(out.BuffInit(size, 0, rate));
  std::vector<float> silence(size);
  EXPECT_EQ(out.PopData(silence.data(), size), size);
  EXPECT_EQ(in.PushData(samples.data(), size), size);
  std::vector<short> model;
  const auto wanted = static_cast<int>(blocks * kModelFrame);
  EXPECT_EQ(in.data(model, wanted, false), wanted);
  EXPECT_EQ(out.PushData(model.data(), static_cast<std::uint32_t>(model.size())), model.size());
  EXPECT_EQ(out.PopData(result.data(), size), size);
  return result;
}

TEST_F(EnhanceCommand, SoundsAsBothConvertersAtDeviceRates) {
  for (const std::uint32_t rate : {48000u, 44100u}) {
    const FloatAudio input = sixteen_bit_noise(rate, 1, rate / 3);
    const std::vector<float> expected = converted(input, 50);
    write(model_text({1}), input);

    const FloatAudio raw = enhanced({"--raw"});
    ASSERT_EQ(raw.samples.size(), rate / 3);
    constexpr std::size_t kSilence = 120 * 48;  // 120 ms; 48 a millisecond count at both rates
    EXPECT_TRUE(std::all_of(raw.samples.begin(), raw.samples.begin() + kSilence, [](float x) { return x == 0; }));
    EXPECT_TRUE(std::equal(raw.samples.begin() + kSilence, raw.samples.end(), expected.begin())) << rate;

    // 16 samples of each converter's input.
    const std::size_t late = 16 + static_cast<std::size_t>(std::lround(16.0 * rate / 16000));
    const FloatAudio aligned = enhanced();
    ASSERT_EQ(aligned.samples.size(), rate / 3);
    const auto same = [&](std::size_t delay) {
      return std::equal(aligned.samples.begin(), aligned.samples.end(),
                        expected.begin() + static_cast<std::ptrdiff_t>(delay));
    };
    EXPECT_TRUE(same(late)) << rate << ": " << output_.str();
  }
}

TEST_F(EnhanceCommand, TakesModelsWithLongerFrames) {
  const FloatAudio input = sixteen_bit_noise(48000, 1, 30000);
  write(model_text({1}), input);
  const FloatAudio expected = enhanced();
  write(model_text({1}, "", {{"frame-length", "25"}}), input);
  EXPECT_EQ(enhanced().samples, expected.samples);
}

TEST_F(EnhanceCommand, ForcesStreamingWhateverTheModelSays) {
  const FloatAudio input = sixteen_bit_noise(16000, 1, 3000);
  write(model_text({1}, "", {{"offline", "true"}, {"chunk-size", "7"}}), input);
  EXPECT_EQ(enhanced().samples, input.samples);
}

TEST_F(EnhanceCommand, RefusesModelsThatAreNone) {
  write("hello", sixteen_bit_noise(16000, 1, 1000));
  EXPECT_EQ(run(), 1);
  EXPECT_EQ(errors_.str().find("error: " + path("model") + " is no speech enhancement model: "), 0u) << errors_.str();
  EXPECT_NE(errors_.str().find("E2E用モデルではない(hell)"), std::string::npos) << errors_.str();
}

TEST_F(EnhanceCommand, RefusesModelsThatDontStreamSamples) {
  const FloatAudio input = sixteen_bit_noise(16000, 1, 1000);
  write(model_text({1}, "", {{"feature-extractor-type", "lmfb"}}), input);
  expect_failure("the model takes features, not samples; give one with feature-extractor-type none");
  write(model_text({1}, "", {{"sample-frequency", "8000"}}), input);
  expect_failure("the model is not made for 16000 Hz; give one that is");
  write(model_text({1}, "", {{"overlap", "2"}}), input);
  expect_failure("the model's chunks overlap, so that it gives more than it takes; give one with overlap 0");
  write(model_text({0, 1}), input);
  expect_failure("the model gives nothing of its input back within half a second, so OUT cannot be aligned; use --raw");
}

TEST_F(EnhanceCommand, RefusesModelsThatLoseTheBeat) {
  for (const std::uint32_t rate : {48000u, 16000u}) {
    const FloatAudio input = sixteen_bit_noise(rate, 1, 2 * rate);
    write(model_text({1}, kHalf), input);
    expect_failure("the model gives less than it takes", {"--raw"});
    write(model_text({1}, kTwice), input);
    expect_failure("the model gives more than it takes", {"--raw"});
  }
}

TEST_F(EnhanceCommand, RefusesRowsThatTheModelDoesNotMix) {
  const FloatAudio input = sixteen_bit_noise(16000, 1, 1000);
  write(model_text({1, 1, 1}), input);
  EXPECT_EQ(run({"--raw"}), 1);
  EXPECT_NE(errors_.str().find("音声強調モデルの出力チャネル数が不正"), std::string::npos) << errors_.str();
  write(model_text({1, 1}), input);
  expect_failure(path("model") + " is no switching model; leave --switching away", {"--switching", "1"});
}

TEST_F(EnhanceCommand, RefusesSamplesThatAreNoNumbers) {
  FloatAudio input = sixteen_bit_noise(16000, 2, 1000);
  input.samples[1999] = std::numeric_limits<float>::quiet_NaN();
  write(model_text({1}), input);
  expect_failure(path("in.wav") + " has a sample that is no finite number; make it again");
}

TEST_F(EnhanceCommand, RefusesWhatAModelCannotMean) {
  write(model_text({1, std::numeric_limits<double>::quiet_NaN()}), sixteen_bit_noise(16000, 1, 1000));
  expect_failure("the model gives samples that are no finite numbers", {"--raw", "--strength", "1"});
}

TEST_F(EnhanceCommand, TakesSharesFrom0To1) {
  write(model_text({1, 1}), sixteen_bit_noise(16000, 1, 1000));
  for (const std::string option : {"--strength", "--switching"}) {
    for (const std::string value : {"-0.1", "1.1", "x", "nan"}) {
      expect_failure(option + " takes a number from 0 to 1, not '" + value + "'", {option + "=" + value}, 2);
    }
  }
}

}  // namespace
}  // namespace sonivo::tool
