// What the enhancement of one matrix gives: scales, channels, strengths, resets.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "../support/messages.h"
#include "../support/models.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/waveform.h"

namespace sonivo::e2e::test {
namespace {

using testing::ElementsAre;

constexpr const char* kChannels = "音声強調モデルの出力チャネル数が不正. in se_model.cpp %d";

struct Enhancement : testing::Test {
  void load(const std::string& network, std::vector<std::pair<std::string, std::string>> symbols = {}) {
    if (model.is_loaded()) model.unload();
    load_bytes(model, model_bytes({.network = network, .symbols = std::move(symbols)}));
  }
  Matrix enhanced(const Matrix& input) { return model.execute(input).get<Matrix>("enhanced"); }

  SEModel model;
};

Matrix row(std::initializer_list<float> values) {
  Matrix matrix(1, static_cast<Eigen::Index>(values.size()));
  std::copy(values.begin(), values.end(), matrix.data());
  return matrix;
}

TEST(Waveform, IsBroughtToFullScale) {
  for (int x = -32768; x <= 32767; x += 97)
    EXPECT_EQ(full_scale(static_cast<float>(x)), static_cast<double>(x) / 32768);
  EXPECT_EQ(full_scale(32767.0f), 32767.0 / 32768);
  EXPECT_EQ(full_scale(40000.0f), 1.0f);
  EXPECT_EQ(full_scale(-40000.0f), -1.0f);
}

TEST(Waveform, IsBroughtBackToSixteenBits) {
  for (const float x : {-1.0f, -0.75f, -1.0f / 32768, 0.0f, 0.3f, 0.99999f}) {
    EXPECT_EQ(sixteen_bit_scale(x), static_cast<double>(x) * 32768);
  }
  EXPECT_EQ(sixteen_bit_scale(1.5f), 32768.0f) << "one above the range of 16 bits";
  EXPECT_EQ(sixteen_bit_scale(-1.5f), -32768.0f);
}

TEST_F(Enhancement, OfOneChannelIsThatChannel) {
  load(gains_network({0.5f}));
  EXPECT_EQ(enhanced(row({100, -200, 32767})), row({50, -100, 16383.5f}));
}

TEST_F(Enhancement, OfTwoChannelsMixesByTheStrength) {
  load(gains_network({1.0f, 0.25f}));
  const Matrix input = row({100, -2000, 30000, 7});
  for (const float strength : {0.25f, 0.7f}) {
    model.set<float>("enhancement-strength", strength);
    const Matrix output = enhanced(input);
    for (Eigen::Index t = 0; t < input.cols(); ++t) {
      const double x = input(0, t);
      const double expected = double{strength} * (0.25 * x) + (1.0 - double{strength}) * x;
      EXPECT_NEAR(output(0, t), expected, 32768 * 2.0e-7);
    }
  }
}

TEST_F(Enhancement, StrengthZeroAndOneAreTheChannelsThemselves) {
  load(gains_network({0.3f, 0.7f}));
  const Matrix input = row({1, -3, 12345, -32768, 32767});
  const auto alone = [&](float gain) {
    SEModel single;
    load_bytes(single, model_bytes({.network = gains_network({gain})}));
    return single.execute(input).get<Matrix>("enhanced");
  };
  model.set<float>("enhancement-strength", 0.0f);
  EXPECT_EQ(enhanced(input), alone(0.3f));
  model.set<float>("enhancement-strength", 1.0f);
  EXPECT_EQ(enhanced(input), alone(0.7f));
}

TEST_F(Enhancement, ASwitchingModelMixesThreeChannels) {
  load(gains_network({1.0f, 0.5f, 0.125f}), {{"is-switching-se", "true"}});
  const Matrix input = row({100, -2000, 30000});
  for (const float strength : {0.0f, 0.4f, 1.0f}) {
    for (const float switching : {0.0f, 0.3f, 1.0f}) {
      model.set<float>("enhancement-strength", strength);
      model.set<float>("switching-strength", switching);
      const Matrix output = enhanced(input);
      for (Eigen::Index t = 0; t < input.cols(); ++t) {
        const double x = input(0, t);
        const double m = double{switching} * (0.125 * x) + (1.0 - double{switching}) * (0.5 * x);
        EXPECT_NEAR(output(0, t), double{strength} * m + (1.0 - double{strength}) * x, 32768 * 2.0e-7);
      }
    }
  }
}

TEST_F(Enhancement, RefusesOtherNumbersOfChannels) {
  load(gains_network({1, 1, 1}));
  EXPECT_THAT(message_of([&] { enhanced(row({1})); }), IsMessage(kChannels));
  load(gains_network({1, 1}), {{"is-switching-se", "true"}});
  EXPECT_THAT(message_of([&] { enhanced(row({1})); }), IsMessage(kChannels));
  load(gains_network({1}), {{"is-switching-se", "true"}});
  EXPECT_THAT(message_of([&] { enhanced(row({1})); }), IsMessage(kChannels));
  load(gains_network({1, 1, 1, 1}));
  EXPECT_THAT(message_of([&] { enhanced(row({1})); }), IsMessage(kChannels));
}

TEST_F(Enhancement, ClampsWhatLeavesTheFullScale) {
  load(gains_network({4.0f}));
  EXPECT_EQ(enhanced(row({30000, -30000, 1000})), row({32768, -32768, 4000}));
}

TEST_F(Enhancement, OfNothingIsNothing) {
  load(gains_network({1.0f}));
  EXPECT_EQ(enhanced(Matrix(1, 0)).size(), 0);
}

TEST_F(Enhancement, OfFramesOfSamplesIsOneRowInTheirOrder) {
  load(gains_network({1.0f}));
  Matrix frames(2, 3);
  frames << 1, 3, 5,  //
      2, 4, 6;
  EXPECT_EQ(enhanced(frames), row({1, 2, 3, 4, 5, 6}));
}

TEST_F(Enhancement, NeedsALoadedModel) {
  EXPECT_THAT(message_of([&] { enhanced(row({1})); }),
              IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
}

TEST_F(Enhancement, TheNetworkRemembersWhatWasBefore) {
  load(memory_network());
  EXPECT_EQ(enhanced(row({1, 2})), row({1, 3}));
  EXPECT_EQ(enhanced(row({4, 8})), row({6, 12}));
}

TEST_F(Enhancement, ResetContextCountsFrames) {
  load(memory_network());
  model.set<bool>("offline", false);
  model.set<int>("reset-context", 3);
  EXPECT_EQ(enhanced(row({1, 1, 1, 1, 1, 1, 1})), row({1, 2, 2, 1, 2, 2, 1}));
  EXPECT_EQ(enhanced(row({1})), row({2})) << "one frame was taken since the reset";
  EXPECT_EQ(enhanced(row({1, 1})), row({2, 1}));
}

TEST_F(Enhancement, ResetContextCountsColumnsOfSeveralSamples) {
  load(memory_network());
  model.set<bool>("offline", false);
  model.set<int>("reset-context", 2);
  EXPECT_EQ(enhanced(Matrix::Ones(2, 3)), row({1, 2, 2, 2, 1, 2}));
}

TEST_F(Enhancement, WithoutResetContextAndOfflineTheStateRunsOn) {
  load(memory_network());
  model.set<bool>("offline", false);
  EXPECT_EQ(enhanced(row({1, 1, 1, 1})), row({1, 2, 2, 2}));
  model.set<bool>("offline", true);
  model.set<int>("reset-context", 2);
  EXPECT_EQ(enhanced(row({1, 1, 1, 1})), row({2, 2, 2, 2}));
}

TEST_F(Enhancement, AShorterContextThanWasRunBeginsAnew) {
  load(memory_network());
  model.set<bool>("offline", false);
  model.set<int>("reset-context", 10);
  EXPECT_EQ(enhanced(row({1, 1, 1, 1})), row({1, 2, 2, 2}));
  model.set<int>("reset-context", 3);
  EXPECT_EQ(enhanced(row({1, 1})), row({1, 2}));
}

TEST_F(Enhancement, OfFeaturesHasTheRowsOfTheInputWhereItCanBeCutSo) {
  // One row that goes through, of frames of two rows: the sum of each.
  const std::string sums = network_bytes(2, 1, {dense_bytes("a", {1, 1}, {0})}, {{"_input", "a"}, {"a", "_output"}});
  load(sums, {{"feature-extractor-type", "lmfb"}});
  Matrix features(2, 4);
  features << 1, 2, 3, 4,  //
      10, 20, 30, 40000;
  Matrix expected(2, 2);
  expected << 11, 33,  //
      22, 40004;
  EXPECT_EQ(enhanced(features), expected) << "neither scaled nor clamped";
  EXPECT_EQ(enhanced(features.leftCols(3)), row({11, 22, 33}));
}

TEST_F(Enhancement, AtStrengthZeroAndOneNothingOfTheOtherChannelComesIn) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Matrix input = row({5, -6, 0});
  load(gains_network({1.0f, nan}));
  model.set<float>("enhancement-strength", 0.0f);
  EXPECT_EQ(enhanced(input), input);
  load(gains_network({nan, 1.0f}));
  model.set<float>("enhancement-strength", 1.0f);
  EXPECT_EQ(enhanced(input), input);
  load(gains_network({nan, nan, 1.0f}), {{"is-switching-se", "true"}});
  EXPECT_EQ(enhanced(input), input);
}

TEST_F(Enhancement, OfANetworkThatGivesNothingYetIsNothing) {
  load(thinning_network());
  EXPECT_EQ(enhanced(row({1, 2})).size(), 0);
}

TEST_F(Enhancement, NoNumberStaysNone) {
  load(gains_network({std::numeric_limits<float>::quiet_NaN()}));
  EXPECT_TRUE(std::isnan(enhanced(row({1}))(0, 0)));
}

}  // namespace
}  // namespace sonivo::e2e::test
