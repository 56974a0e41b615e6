#include "classic/harmonic_noise_tracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "classic/noise_level_tracker.h"
#include "key_parameters.h"
#include "reference_trackers.h"

namespace sonivo::classic::test {
namespace {

using testing::ElementsAre;

/// Six bands, valleys searched from band 1 on.
Nl2Block six_bands() {
  return {.nbin = 6,
          .init_wait = 0,
          .update_cycle_noise = 10,
          .update_cycle_voice = 10,
          .base_freq = 1,
          .pad = 0,
          .Nin_init = 1000.0f,
          .freq_dh_pwc = 0.25f,
          .freq_dh_up_coef = 2.0f,
          .freq_dh_dn_coef = 1.5f};
}

using Levels = std::vector<float>;

/// The level that a tracker of zeros is raised to.
Levels frame(HarmonicNoiseTracker& tracker, const Levels& input, bool voice = false) {
  Levels level(input.size());
  tracker.process(input, voice, level);
  return level;
}

TEST(HarmonicNoiseTracker, FollowsTheInputUpToTheBaseBand) {
  const Nl2Block param = six_bands();
  HarmonicNoiseTracker tracker(param);
  const Levels level = frame(tracker, {70.0f, 8.0f, 8.0f, 8.0f, 8.0f, 8.0f});
  EXPECT_EQ(level[0], 70.0f);
  EXPECT_EQ(level[1], 8.0f);
}

TEST(HarmonicNoiseTracker, FallsIntoValleysByItsCoefficient) {
  const Nl2Block param = six_bands();
  HarmonicNoiseTracker tracker(param);
  // e = 0.75 * 4 + 0.25 * 16 = 7, then 0.75 * 3 + 0.25 * 7 = 4, 0.75 * 0 + 0.25 * 4 = 1, 0.25 * 1
  EXPECT_THAT(frame(tracker, {0.0f, 16.0f, 4.0f, 3.0f, 0.0f, 0.0f}), ElementsAre(0.0f, 16.0f, 7.0f, 4.0f, 1.0f, 0.25f));
}

TEST(HarmonicNoiseTracker, TakesSmallRisesAsTheyAreAndCutsPeaksToARisingEnvelope) {
  const Nl2Block param = six_bands();
  HarmonicNoiseTracker tracker(param);
  // 15 < 2 * 8: as it is, the envelope stays at 8; 16 is not below 2 * 8: 1.5 * 8; 23 < 2 * 12; 99: 1.5 * 12
  EXPECT_THAT(frame(tracker, {0.0f, 8.0f, 15.0f, 16.0f, 23.0f, 99.0f}),
              ElementsAre(0.0f, 8.0f, 15.0f, 12.0f, 23.0f, 18.0f));
}

TEST(HarmonicNoiseTracker, AnInputAtTheEnvelopeIsNoValley) {
  Nl2Block param = six_bands();
  param.freq_dh_up_coef = 1.0f;
  HarmonicNoiseTracker tracker(param);
  EXPECT_THAT(frame(tracker, {8.0f, 8.0f, 8.0f, 12.0f, 18.0f, 27.0f}),
              ElementsAre(8.0f, 8.0f, 12.0f, 18.0f, 27.0f, 40.5f));
}

TEST(HarmonicNoiseTracker, OnlyRaisesTheLevelOfTheOtherTracker) {
  const Nl2Block param = six_bands();
  HarmonicNoiseTracker tracker(param);
  Levels level = {5.0f, 5.0f, 9.0f, 9.0f, 5.0f, 9.0f, 77.0f};
  tracker.process(Levels(6, 8.0f), false, level);
  EXPECT_THAT(level, ElementsAre(8.0f, 8.0f, 9.0f, 9.0f, 8.0f, 9.0f, 77.0f));
}

TEST(HarmonicNoiseTracker, WritesNothingDuringInitWait) {
  Nl2Block param = six_bands();
  param.init_wait = 2;
  HarmonicNoiseTracker tracker(param);
  EXPECT_THAT(frame(tracker, Levels(6, 8.0f)), testing::Each(0.0f));
  EXPECT_THAT(frame(tracker, Levels(6, 8.0f)), testing::Each(0.0f));
  EXPECT_THAT(frame(tracker, Levels(6, 9.0f)), testing::Each(9.0f));
}

TEST(HarmonicNoiseTracker, ForgetsAQuietFrameAfterOneToTwoCycles) {
  const Nl2Block param = six_bands();
  HarmonicNoiseTracker tracker(param);
  frame(tracker, Levels(6, 1.0f));
  for (int i = 2; i <= 20; ++i) EXPECT_THAT(frame(tracker, Levels(6, 8.0f)), testing::Each(1.0f)) << i;
  EXPECT_THAT(frame(tracker, Levels(6, 8.0f)), testing::Each(8.0f));
}

TEST(HarmonicNoiseTracker, WaitsAndCountsInWordsWithASign) {
  Nl2Block param = six_bands();
  param.init_wait = 40000;  // no wait at all
  param.update_cycle_voice = 20000;
  HarmonicNoiseTracker tracker(param);
  EXPECT_THAT(frame(tracker, Levels(6, 1.0f), true), testing::Each(1.0f));
  for (int i = 2; i <= 100000; ++i) ASSERT_EQ(frame(tracker, Levels(6, 8.0f), true)[0], 1.0f) << i;  // 2 V never comes
}

TEST(HarmonicNoiseTracker, TheRestartFlagStopsTheWindowsForSixtyFrames) {
  Nl2Block param = six_bands();
  bool restart = false;
  HarmonicNoiseTracker tracker(param, &restart);
  frame(tracker, Levels(6, 8.0f));
  restart = true;
  EXPECT_THAT(frame(tracker, Levels(6, 3.0f)), testing::Each(8.0f));
  restart = false;
  for (int i = 0; i < 59; ++i) EXPECT_THAT(frame(tracker, Levels(6, 3.0f)), testing::Each(8.0f));
  EXPECT_THAT(frame(tracker, Levels(6, 3.0f)), testing::Each(3.0f));
}

TEST(HarmonicNoiseTracker, AgreesWithTheReferenceBehindItsTracker) {
  for (const std::uint16_t base : Edges{0, 9, 59}) {
    const NlBlock nl = {
        .nbin = 60, .init_wait = 10, .update_cycle_noise = 30, .update_cycle_voice = 40, .Nin_init = 500.0f};
    const Nl2Block nl2 = {.nbin = 60,
                          .init_wait = 25,
                          .update_cycle_noise = 20,
                          .update_cycle_voice = 35,
                          .base_freq = base,
                          .pad = 0,
                          .Nin_init = 700.0f,
                          .freq_dh_pwc = 0.8f,
                          .freq_dh_up_coef = 1.4f,
                          .freq_dh_dn_coef = 1.02f};
    NoiseLevelTracker tracker(nl);
    HarmonicNoiseTracker harmonic(nl2);
    reference::NoiseLevelTracker expected(nl);
    reference::HarmonicNoiseTracker expected_harmonic(nl2);
    std::mt19937 random(11);
    std::uniform_real_distribution<float> level(10.0f, 100.0f);
    bool voice = false;
    for (int i = 0; i < 2000; ++i) {
      Levels input(60);
      for (float& x : input) x = level(random);
      if (random() % 40 == 0) voice = !voice;
      tracker.process(input, voice);
      harmonic.process(input, voice, tracker.level());
      const reference::Vector x(input.begin(), input.end());
      expected.process(x, voice);
      expected_harmonic.process(x, voice, expected.level);
      for (std::size_t k = 0; k < 60; ++k) {
        ASSERT_NEAR(tracker.level()[k], expected.level[k], 1e-5 * expected.level[k]) << i << ", band " << k;
      }
    }
    harmonic.reset();
    EXPECT_THAT(frame(harmonic, Levels(60, 8.0f)), testing::Each(0.0f)) << "waits again";
  }
}

}  // namespace
}  // namespace sonivo::classic::test
