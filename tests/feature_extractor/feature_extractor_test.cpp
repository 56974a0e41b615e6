#include "feature_extractor/feature_extractor.h"

#include <gtest/gtest.h>

#include "feature_extractor/frame_sizes.h"
#include "reference.h"

namespace sonivo {
namespace {

using reference::CutInput;
using reference::GroupInput;
using reference::message;
using reference::Samples;
using Features = std::vector<std::vector<float>>;

FeatureOptions without_dither() {
  FeatureOptions options;
  options.dither = 0.0f;
  return options;
}

Features extract(const FeatureOptions& options, std::shared_ptr<Input<short>> input) {
  FrameData frames(options, std::move(input));
  FeatureExtractor extractor(options);
  Features all;
  while (frames.has_next()) extractor.compute(frames, all.emplace_back());
  return all;
}

Features extract(const FeatureOptions& options, const std::vector<short>& samples) {
  return extract(options, std::make_shared<CutInput>(samples));
}

/// Three frames of noise against the reference: logarithms to 5e-5, everything else to 5e-5 of its value.
void expect_reference(const FeatureOptions& options) {
  const auto length = static_cast<std::size_t>(frame_length_samples(options));
  const auto shift = static_cast<std::size_t>(frame_shift_samples(options));
  const auto samples = reference::noise(length + 2 * shift);
  const Features features = extract(options, samples);
  ASSERT_EQ(features.size(), 3u);
  for (std::size_t t = 0; t < 3; ++t) {
    const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(t * shift);
    const Samples expected = reference::features(options, Samples(begin, begin + static_cast<std::ptrdiff_t>(length)));
    ASSERT_EQ(features[t].size(), expected.size());
    for (std::size_t b = 0; b < expected.size(); ++b) {
      const double tolerance = options.use_log_fbank ? 5e-5 : 5e-5 * std::abs(expected[b]);
      EXPECT_NEAR(features[t][b], expected[b], tolerance) << "frame " << t << " feature " << b;
    }
  }
}

TEST(FeatureExtractor, DefaultsFollowTheFormulas) { expect_reference(without_dither()); }

TEST(FeatureExtractor, EachWindowFollowsTheFormulas) {
  FeatureOptions options = without_dither();
  for (const char* type : {"hanning", "sine", "hamming", "povey", "rectangular", "blackman"}) {
    options.window_type = type;
    expect_reference(options);
  }
  options.blackman_coeff = 0.3f;
  expect_reference(options);
}

TEST(FeatureExtractor, OffsetAndPreemphasisFollowTheFormulas) {
  FeatureOptions options = without_dither();
  options.remove_dc_offset = false;
  expect_reference(options);
  options.preemphasis_coefficient = 0.5f;
  expect_reference(options);
  options.preemphasis_coefficient = 0.0f;
  expect_reference(options);
}

TEST(FeatureExtractor, MagnitudesAndLinearValuesFollowTheFormulas) {
  FeatureOptions options = without_dither();
  options.use_power = false;
  expect_reference(options);
  options.use_log_fbank = false;
  expect_reference(options);
  options.use_power = true;
  expect_reference(options);
}

TEST(FeatureExtractor, OtherRatesAndLengthsFollowTheFormulas) {
  FeatureOptions options = without_dither();
  options.round_to_power_of_two = false;
  expect_reference(options);  // 400 points
  options.sample_frequency = 22050.0f;
  expect_reference(options);  // 551
  options.sample_frequency = 44100.0f;
  options.num_mel_bins = 40;
  expect_reference(options);  // 1102
  options.round_to_power_of_two = true;
  expect_reference(options);  // 2048
  options.sample_frequency = 8000.0f;
  options.frame_length = 32.0f;
  options.num_mel_bins = 15;
  options.frame_shift = 40.0f;
  expect_reference(options);  // 256 without padding
}

TEST(FeatureExtractor, MelRangeAndWarpFollowTheFormulas) {
  FeatureOptions options = without_dither();
  options.num_mel_bins = 40;
  options.low_freq = 80.0f;
  options.high_freq = -400.0f;
  expect_reference(options);
  options.vtln_low = 120.0f;
  for (const float warp : {0.85f, 1.15f}) {
    options.vtln_warp = warp;
    expect_reference(options);
    options.vtln_high = 7000.0f;
    expect_reference(options);
  }
}

TEST(FeatureExtractor, EnergyVariantsFollowTheFormulas) {
  FeatureOptions options = without_dither();
  options.use_energy = true;
  for (const bool raw : {true, false}) {
    options.raw_energy = raw;
    for (const bool behind : {true, false}) {
      options.htk_compat = behind;
      for (const float floor : {0.0f, 1.0f, 1e12f}) {
        options.energy_floor = floor;
        expect_reference(options);
      }
    }
  }
}

TEST(FeatureExtractor, EnergyStandsFirstOrLast) {
  FeatureOptions options = without_dither();
  const auto samples = reference::noise(400);
  const auto bins = extract(options, samples)[0];
  options.use_energy = true;
  const auto first = extract(options, samples)[0];
  options.htk_compat = true;
  const auto last = extract(options, samples)[0];
  ASSERT_EQ(bins.size(), 23u);
  ASSERT_EQ(first.size(), 24u);
  ASSERT_EQ(last.size(), 24u);
  EXPECT_EQ(std::vector<float>(first.begin() + 1, first.end()), bins);
  EXPECT_EQ(std::vector<float>(last.begin(), last.end() - 1), bins);
  EXPECT_EQ(first.front(), last.back());
}

TEST(FeatureExtractor, HtkCompatWithoutEnergyChangesNothing) {
  FeatureOptions options = without_dither();
  const auto samples = reference::noise(400);
  const auto bins = extract(options, samples);
  options.htk_compat = true;
  EXPECT_EQ(extract(options, samples), bins);
}

TEST(FeatureExtractor, SilenceIsTheLogarithmOfEpsilonEverywhere) {
  FeatureOptions options = without_dither();
  options.use_energy = true;
  for (const bool raw : {true, false}) {
    options.raw_energy = raw;
    const auto features = extract(options, std::vector<short>(400));
    for (const float value : features[0]) EXPECT_FLOAT_EQ(value, -15.942385f);
  }
}

TEST(FeatureExtractor, EnergyFloorIsGivenInTheLinearDomain) {
  FeatureOptions options = without_dither();
  options.use_energy = true;
  options.energy_floor = 100.0f;
  EXPECT_FLOAT_EQ(extract(options, std::vector<short>(400))[0][0], 4.6051702f);  // ln 100
}

TEST(FeatureExtractor, ToneFallsIntoItsBin) {
  FeatureOptions options = without_dither();
  std::vector<short> tone(400);
  for (std::size_t i = 0; i < tone.size(); ++i) {
    tone[i] = static_cast<short>(std::lround(10000.0 * std::sin(2.0 * reference::kPi * 1000.0 * double(i) / 16000.0)));
  }
  const auto features = extract(options, tone)[0];
  const double d = (reference::mel(8000.0) - reference::mel(20.0)) / 24.0;
  const double bin = (reference::mel(1000.0) - reference::mel(20.0)) / d - 1.0;
  EXPECT_EQ(std::max_element(features.begin(), features.end()) - features.begin(), std::lround(bin));
}

TEST(FeatureExtractor, OptionsWithoutEffectHaveNone) {
  const auto samples = reference::noise(2000);
  const auto expected = extract(without_dither(), samples);
  FeatureOptions options = without_dither();
  options.allow_downsample = options.allow_upsample = options.htk_mode = options.subtract_mean = true;
  options.simulate_first_pass_online = options.nccf_ballast_online = true;
  options.max_feature_vectors = 1;
  options.min_duration = 100.0f;
  options.min_f0 = options.max_f0 = options.soft_min_f0 = options.penalty_factor = options.lowpass_cutoff = -1.0f;
  options.resample_frequency = options.delta_pitch = options.nccf_ballast = 0.0f;
  options.lowpass_filter_width = options.upsample_filter_width = options.max_frames_latency = -1;
  options.frames_per_chunk = options.recompute_frame = -1;
  EXPECT_EQ(extract(options, samples), expected);
}

TEST(FeatureExtractor, AnyCuttingOfTheInputGivesTheSameFeatures) {
  FeatureOptions options;  // with dither
  const auto samples = reference::noise(4000);
  const auto whole = extract(options, samples);
  ASSERT_EQ(whole.size(), 23u);
  for (const auto& cuts : std::vector<std::vector<std::size_t>>{{1}, {160}, {7, 400, 33}, {4000}, {399, 2}}) {
    EXPECT_EQ(extract(options, std::make_shared<CutInput>(samples, cuts)), whole);
  }
  EXPECT_EQ(extract(options, std::make_shared<GroupInput>(samples, 160)), whole);
}

TEST(FeatureExtractor, ContradictingMelOptionsFailAtTheFirstFrame) {
  FeatureOptions options = without_dither();
  options.num_mel_bins = 2;
  FrameData frames(options, std::make_shared<CutInput>(reference::noise(400)));
  FeatureExtractor extractor(options);
  ASSERT_TRUE(frames.has_next());
  std::vector<float> out;
  EXPECT_EQ(message([&] { extractor.compute(frames, out); }), "Error: Must have at least 3 mel bins");
}

TEST(FeatureExtractor, SizesOutOfBoundsFailBeforeTablesAreBuilt) {
  FeatureOptions options;
  options.frame_length = 1e9f;
  EXPECT_EQ(message([&] { FeatureExtractor extractor(options); }),
            "Error: frame-length of 1e+09 ms at 16000 Hz gives 1.6e+10 samples, not 2 to 1048576");
}

TEST(FeatureExtractor, ShortestFrames) {
  FeatureOptions options = without_dither();
  options.sample_frequency = 1000.0f;
  options.frame_length = 2.0f;
  options.frame_shift = 1.0f;
  options.num_mel_bins = 3;
  options.window_type = "rectangular";
  options.remove_dc_offset = false;
  for (const bool power_of_two : {true, false}) {
    options.round_to_power_of_two = power_of_two;
    for (const float length : {2.0f, 3.0f, 4.0f, 5.0f}) {
      options.frame_length = length;
      expect_reference(options);
    }
  }
}

TEST(FeatureExtractor, LongestFrame) {
  FeatureOptions options = without_dither();
  options.sample_frequency = 1000.0f;
  options.round_to_power_of_two = false;
  options.frame_length = 1048575.0f;
  options.frame_shift = 1.0f;
  const auto features = extract(options, std::vector<short>(1048575, 1));
  ASSERT_EQ(features.size(), 1u);
  EXPECT_EQ(features[0].size(), 23u);
}

TEST(FeatureOptions, DefaultsAreThoseOfTheVariables) {
  const FeatureOptions options;
  EXPECT_EQ(options.sample_frequency, 16000.0f);
  EXPECT_EQ(options.frame_length, 25.0f);
  EXPECT_EQ(options.frame_shift, 10.0f);
  EXPECT_EQ(options.dither, 1.0f);
  EXPECT_EQ(options.preemphasis_coefficient, 0.97f);
  EXPECT_TRUE(options.remove_dc_offset);
  EXPECT_EQ(options.window_type, "povey");
  EXPECT_TRUE(options.round_to_power_of_two);
  EXPECT_EQ(options.blackman_coeff, 0.42f);
  EXPECT_TRUE(options.snip_edges);
  EXPECT_FALSE(options.allow_downsample);
  EXPECT_FALSE(options.allow_upsample);
  EXPECT_EQ(options.max_feature_vectors, -1);
  EXPECT_EQ(options.num_mel_bins, 23);
  EXPECT_EQ(options.low_freq, 20.0f);
  EXPECT_EQ(options.high_freq, 0.0f);
  EXPECT_EQ(options.vtln_low, 100.0f);
  EXPECT_EQ(options.vtln_high, -500.0f);
  EXPECT_FALSE(options.debug_mel);
  EXPECT_FALSE(options.htk_mode);
  EXPECT_FALSE(options.use_energy);
  EXPECT_EQ(options.energy_floor, 0.0f);
  EXPECT_TRUE(options.raw_energy);
  EXPECT_FALSE(options.htk_compat);
  EXPECT_TRUE(options.use_log_fbank);
  EXPECT_TRUE(options.use_power);
  EXPECT_EQ(options.min_f0, 50.0f);
  EXPECT_EQ(options.max_f0, 400.0f);
  EXPECT_EQ(options.soft_min_f0, 10.0f);
  EXPECT_EQ(options.penalty_factor, 0.1f);
  EXPECT_EQ(options.lowpass_cutoff, 1000.0f);
  EXPECT_EQ(options.resample_frequency, 4000.0f);
  EXPECT_EQ(options.delta_pitch, 0.005f);
  EXPECT_EQ(options.nccf_ballast, 7000.0f);
  EXPECT_EQ(options.lowpass_filter_width, 1);
  EXPECT_EQ(options.upsample_filter_width, 5);
  EXPECT_EQ(options.max_frames_latency, 0);
  EXPECT_EQ(options.frames_per_chunk, 0);
  EXPECT_FALSE(options.simulate_first_pass_online);
  EXPECT_EQ(options.recompute_frame, 500);
  EXPECT_FALSE(options.nccf_ballast_online);
  EXPECT_FALSE(options.subtract_mean);
  EXPECT_EQ(options.vtln_warp, 1.0f);
  EXPECT_EQ(options.min_duration, 0.0f);
}

}  // namespace
}  // namespace sonivo
