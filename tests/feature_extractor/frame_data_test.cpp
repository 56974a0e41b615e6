#include "feature_extractor/frame_data.h"

#include <gtest/gtest.h>

#include <limits>

#include "reference.h"

namespace sonivo {
namespace {

using reference::CutInput;
using reference::GroupInput;
using reference::message;
using reference::Samples;

/// Frames without any processing: 20 samples every 7.
FeatureOptions plain(float length_ms = 20.0f, float shift_ms = 7.0f) {
  FeatureOptions options;
  options.sample_frequency = 1000.0f;
  options.frame_length = length_ms;
  options.frame_shift = shift_ms;
  options.dither = 0.0f;
  options.remove_dc_offset = false;
  options.preemphasis_coefficient = 0.0f;
  options.window_type = "rectangular";
  return options;
}

std::vector<short> counting(std::size_t count) {
  std::vector<short> samples(count);
  for (std::size_t i = 0; i < count; ++i) samples[i] = static_cast<short>(i);
  return samples;
}

std::vector<std::vector<float>> all_frames(FrameData frames) {
  std::vector<std::vector<float>> all;
  std::vector<float> frame;
  while (frames.has_next()) {
    frames.extract(frame, nullptr);
    all.push_back(frame);
  }
  EXPECT_EQ(frames.frame_count(), static_cast<std::int64_t>(all.size()));
  return all;
}

void expect_counting_frames(const std::vector<std::vector<float>>& frames, std::size_t samples, std::size_t length,
                            std::size_t shift) {
  ASSERT_EQ(frames.size(), samples < length ? 0 : 1 + (samples - length) / shift);
  for (std::size_t k = 0; k < frames.size(); ++k) {
    ASSERT_EQ(frames[k].size(), length);
    for (std::size_t i = 0; i < length; ++i) ASSERT_EQ(frames[k][i], static_cast<float>(k * shift + i));
  }
}

std::vector<std::vector<float>> cut(const FeatureOptions& options, std::size_t samples,
                                    std::vector<std::size_t> cuts = {}) {
  return all_frames(FrameData(options, std::make_shared<CutInput>(counting(samples), std::move(cuts))));
}

TEST(FrameData, SizesAreTruncatedToWholeSamples) {
  FeatureOptions options;
  FrameData frames(options, std::make_shared<CutInput>(counting(0)));
  EXPECT_EQ(frames.frame_length_samples(), 400);
  EXPECT_EQ(frames.frame_shift_samples(), 160);
  options.sample_frequency = 44100.0f;
  options.frame_length = 25.0f;  // 1102.5
  options.frame_shift = 0.99f;   // 43.659
  FrameData fraction(options, std::make_shared<CutInput>(counting(0)));
  EXPECT_EQ(fraction.frame_length_samples(), 1102);
  EXPECT_EQ(fraction.frame_shift_samples(), 43);
}

TEST(FrameData, FrameKStartsAtKShifts) {
  for (const std::size_t samples : {0u, 1u, 19u, 20u, 26u, 27u, 28u, 500u}) {
    expect_counting_frames(cut(plain(), samples), samples, 20, 7);
  }
}

TEST(FrameData, ShiftAsLongAsTheFrame) { expect_counting_frames(cut(plain(20, 20), 100), 100, 20, 20); }

TEST(FrameData, ShiftLongerThanTheFrameSkipsSamples) {
  for (const std::size_t samples : {19u, 20u, 51u, 52u, 84u, 500u}) {
    expect_counting_frames(cut(plain(20, 32), samples), samples, 20, 32);
    expect_counting_frames(cut(plain(20, 32), samples, {5, 1, 60}), samples, 20, 32);
  }
}

TEST(FrameData, CutsOfTheSourceMakeNoDifference) {
  for (const auto& cuts : std::vector<std::vector<std::size_t>>{{1}, {3, 11}, {20}, {27}, {100}, {1, 200, 2}, {5000}}) {
    expect_counting_frames(cut(plain(), 5000, cuts), 5000, 20, 7);
  }
}

TEST(FrameData, SourceOfWholeGroupsIsAskedForWholeGroups) {
  for (const float shift : {7.0f, 10.0f, 15.0f, 3.0f, 33.0f}) {
    const auto frames = all_frames(FrameData(plain(25, shift), std::make_shared<GroupInput>(counting(500), 10)));
    expect_counting_frames(frames, 500, 25, static_cast<std::size_t>(shift));
  }
}

TEST(FrameData, GroupIsTheSamplesOf10Ms) {
  FeatureOptions options = plain(25, 10);
  options.sample_frequency = 22050.0f;  // 551, 220; groups of 220
  FrameData frames(options, std::make_shared<GroupInput>(counting(2200), 220));
  std::vector<float> frame;
  for (int k = 0; k < 8; ++k) {
    ASSERT_TRUE(frames.has_next());
    frames.extract(frame, nullptr);
    EXPECT_EQ(frame[0], static_cast<float>(220 * k));
    EXPECT_EQ(frame[550], static_cast<float>(220 * k + 550));
  }
  EXPECT_FALSE(frames.has_next());
}

/// Writes down what it is asked for.
class AskedInput : public CutInput {
 public:
  using CutInput::CutInput;
  int data(std::vector<short>& out, int require, bool trancate) override {
    asked.push_back(require);
    return CutInput::data(out, require, trancate);
  }
  std::vector<int> asked;
};

TEST(FrameData, AsksForWhatIsMissingAndNoMore) {
  const auto input = std::make_shared<AskedInput>(counting(40));
  FrameData frames(plain(), input);
  while (frames.has_next()) {
  }
  EXPECT_EQ(input->asked, (std::vector<int>{20, 7, 7, 7, 1}));  // the last answer was 6
}

TEST(FrameData, AFrameThatIsNotThereLeavesTheLastOne) {
  FrameData frames(plain(), std::make_shared<CutInput>(counting(30)));
  ASSERT_TRUE(frames.has_next());
  ASSERT_TRUE(frames.has_next());
  ASSERT_FALSE(frames.has_next());
  ASSERT_FALSE(frames.has_next());
  EXPECT_EQ(frames.frame_count(), 2);
  std::vector<float> frame;
  frames.extract(frame, nullptr);
  EXPECT_EQ(frame[0], 7.0f);
  EXPECT_EQ(frame[19], 26.0f);
}

TEST(FrameData, FrameWithoutItsSamplesIsNotExtracted) {
  FrameData frames(plain(), std::make_shared<CutInput>(counting(13)));
  std::vector<float> frame;
  EXPECT_EQ(message([&] { frames.extract(frame, nullptr); }), "Error: 入力データサイズ(0)が窓幅(20)に適合しない.");
  EXPECT_FALSE(frames.has_next());
  EXPECT_EQ(message([&] { frames.extract(frame, nullptr); }), "Error: 入力データサイズ(13)が窓幅(20)に適合しない.");
}

TEST(FrameData, OnlySnippedEdgesAreImplemented) {
  FeatureOptions options = plain();
  options.snip_edges = false;
  FrameData frames(options, std::make_shared<CutInput>(counting(100)));
  EXPECT_EQ(message([&] { frames.has_next(); }), "Error: 未実装 snip_edged=false.");
}

TEST(FrameData, RectangleFailsAtTheStartOfAStream) {
  FeatureOptions options = plain();
  options.window_type = "rectangle";
  EXPECT_EQ(message([&] { FrameData frames(options, nullptr); }), "Error: window_type");
}

TEST(FrameData, SizesOutOfBoundsFailAtTheStartOfAStream) {
  const auto fails = [](FeatureOptions options) { return message([&] { FrameData frames(options, nullptr); }); };
  EXPECT_EQ(fails(plain(1.5f)), "Error: frame-length of 1.5 ms at 1000 Hz gives 1.5 samples, not 2 to 1048576");
  EXPECT_EQ(fails(plain(1048577.0f)),
            "Error: frame-length of 1.04858e+06 ms at 1000 Hz gives 1.04858e+06 samples, not 2 to 1048576");
  EXPECT_EQ(fails(plain(20.0f, 0.0f)), "Error: frame-shift of 0 ms at 1000 Hz gives 0 samples, not 1 to 1048576");
  EXPECT_EQ(fails(plain(20.0f, 1e20f)),
            "Error: frame-shift of 1e+20 ms at 1000 Hz gives 1e+20 samples, not 1 to 1048576");
  for (const float frequency :
       {0.0f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 3e38f, -1000.0f}) {
    FeatureOptions options = plain();
    options.sample_frequency = frequency;
    EXPECT_EQ(fails(options).substr(0, 32), "Error: frame-length of 20 ms at ");
    EXPECT_NE(fails(options).find(" samples, not 2 to 1048576"), std::string::npos) << fails(options);
    options.frame_length = options.frame_shift = -20.0f;
    EXPECT_NE(fails(options).find(" samples, not 2 to 1048576"), std::string::npos) << fails(options);
  }
  EXPECT_EQ(fails(plain(2.0f, 1.0f)), "nothing was thrown");
  EXPECT_EQ(fails(plain(1048576.0f, 1048576.0f)), "nothing was thrown");
}

/// The frame that a combination of options makes of 400 samples, and its reference.
void expect_processed(const FeatureOptions& options) {
  const auto samples = reference::noise(400);
  FrameData frames(options, std::make_shared<CutInput>(samples));
  ASSERT_TRUE(frames.has_next());
  std::vector<float> frame;
  float energy = 0.0f;
  frames.extract(frame, &energy);
  double expected_energy = 0.0;
  const Samples expected = reference::processed(options, Samples(samples.begin(), samples.end()), &expected_energy);
  ASSERT_EQ(frame.size(), expected.size());
  for (std::size_t i = 0; i < frame.size(); ++i) EXPECT_NEAR(frame[i], expected[i], 0.002) << i;  // of some 2000
  EXPECT_NEAR(energy, expected_energy, 1e-5);
}

TEST(FrameData, EachStepFollowsItsFormula) {
  FeatureOptions options;
  options.dither = 0.0f;
  expect_processed(options);
  options.remove_dc_offset = false;
  expect_processed(options);
  options.preemphasis_coefficient = 0.0f;
  expect_processed(options);
  options.remove_dc_offset = true;
  expect_processed(options);
  options.preemphasis_coefficient = 1.0f;
  expect_processed(options);
  options.preemphasis_coefficient = 0.5f;
  for (const char* type : {"hanning", "sine", "hamming", "povey", "rectangular", "blackman"}) {
    options.window_type = type;
    expect_processed(options);
  }
}

TEST(FrameData, PreemphasisOfTheFirstSampleTakesItself) {
  FeatureOptions options = plain(3.0f, 3.0f);
  options.preemphasis_coefficient = 0.25f;
  FrameData frames(options, std::make_shared<CutInput>(std::vector<short>{8, 16, 4}));
  ASSERT_TRUE(frames.has_next());
  std::vector<float> frame;
  frames.extract(frame, nullptr);
  EXPECT_EQ(frame, (std::vector<float>{6.0f, 14.0f, 0.0f}));
}

TEST(FrameData, EnergyOfSilenceIsThatOfEpsilon) {
  FeatureOptions options;
  options.dither = 0.0f;
  FrameData frames(options, std::make_shared<CutInput>(std::vector<short>(400)));
  ASSERT_TRUE(frames.has_next());
  std::vector<float> frame;
  float energy = 0.0f;
  frames.extract(frame, &energy);
  EXPECT_FLOAT_EQ(energy, -15.942385f);  // ln(1.1920929e-7)
}

TEST(FrameData, FullScaleDoesNotOverflow) {
  FeatureOptions options = plain();
  FrameData frames(options, std::make_shared<CutInput>(std::vector<short>(20, -32768)));
  ASSERT_TRUE(frames.has_next());
  std::vector<float> frame;
  float energy = 0.0f;
  frames.extract(frame, &energy);
  EXPECT_FLOAT_EQ(energy, static_cast<float>(std::log(20.0 * 32768.0 * 32768.0)));
  EXPECT_EQ(frame[19], -32768.0f);
}

TEST(FrameData, DitherIsAddedBeforeAllElseAndRepeatsWithANewReader) {
  FeatureOptions options = plain();
  options.dither = 2.0f;
  const auto with_dither = cut(options, 100);
  EXPECT_EQ(with_dither, cut(options, 100));
  const auto without = cut(plain(), 100);
  Dither dither;
  for (std::size_t k = 0; k < without.size(); ++k) {
    auto expected = without[k];
    dither.add(2.0f, expected);
    EXPECT_EQ(with_dither[k], expected);
  }
  options.remove_dc_offset = true;
  for (const auto& frame : cut(options, 100)) {
    double sum = 0.0;
    for (const float sample : frame) sum += sample;
    EXPECT_NEAR(sum, 0.0, 1e-3);
  }
}

}  // namespace
}  // namespace sonivo
