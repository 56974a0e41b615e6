#include "classic/noise_level_tracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "reference_trackers.h"

namespace sonivo::classic::test {
namespace {

using testing::ElementsAre;

/// One band with windows of U or V frames, no wait, levels start at 100.
NlBlock one_band(std::uint16_t U, std::uint16_t V) {
  return {.nbin = 1, .init_wait = 0, .update_cycle_noise = U, .update_cycle_voice = V, .Nin_init = 100.0f};
}

float frame(NoiseLevelTracker& tracker, float input, bool voice = false) {
  tracker.process(std::vector<float>{input}, voice);
  return tracker.level()[0];
}

TEST(NoiseLevelTracker, GivesNinInitDuringInitWait) {
  NlBlock param = one_band(10, 10);
  param.init_wait = 3;
  NoiseLevelTracker tracker(param);
  EXPECT_EQ(frame(tracker, 5.0f), 100.0f);
  EXPECT_EQ(frame(tracker, 5.0f), 100.0f);
  EXPECT_EQ(frame(tracker, 5.0f), 100.0f);
  EXPECT_EQ(frame(tracker, 7.0f), 7.0f);
}

TEST(NoiseLevelTracker, WorksFromTheFirstFrameWithoutInitWait) {
  NlBlock param = one_band(10, 10);
  NoiseLevelTracker tracker(param);
  EXPECT_EQ(frame(tracker, 5.0f), 5.0f);
}

TEST(NoiseLevelTracker, ShowsALowerInputAtOnceAndAHigherOneOnlyAfterAWindow) {
  NlBlock param = one_band(10, 10);
  NoiseLevelTracker tracker(param);
  EXPECT_EQ(frame(tracker, 20.0f), 20.0f);
  EXPECT_EQ(frame(tracker, 10.0f), 10.0f);
  EXPECT_EQ(frame(tracker, 50.0f), 10.0f);
  EXPECT_EQ(frame(tracker, 500.0f), 10.0f);
}

TEST(NoiseLevelTracker, NeverExceedsNinInit) {
  NlBlock param = one_band(3, 3);
  NoiseLevelTracker tracker(param);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(frame(tracker, 500.0f), 100.0f);
}

/// A dip at frame `dip` (from 1) shows until both windows have started again: the last frame at which it does.
int last_frame_of_dip(const NlBlock& param, int dip, bool voice, int frames) {
  NoiseLevelTracker tracker(param);
  int last = 0;
  for (int i = 1; i <= frames; ++i) {
    if (frame(tracker, i == dip ? 10.0f : 50.0f, voice) == 10.0f) last = i;
  }
  return last;
}

TEST(NoiseLevelTracker, UnderConstantVoiceWindowAStartsAgainAtOddCyclesAndBAtEvenOnes) {
  const NlBlock param = one_band(7, 100);
  // A starts again at the end of frames 100, 300, ..., B at the end of frames 200, 400, ...
  EXPECT_EQ(last_frame_of_dip(param, 1, true, 1000), 200);
  EXPECT_EQ(last_frame_of_dip(param, 100, true, 1000), 200);
  EXPECT_EQ(last_frame_of_dip(param, 101, true, 1000), 300);
  EXPECT_EQ(last_frame_of_dip(param, 200, true, 1000), 300);
  EXPECT_EQ(last_frame_of_dip(param, 201, true, 1000), 400);
  EXPECT_EQ(last_frame_of_dip(param, 300, true, 1000), 400);
}

/// Waits and counts are words with a sign.
TEST(NoiseLevelTracker, AnInitWaitOfMoreThanAWordHoldsIsNone) {
  NlBlock param = one_band(10, 10);
  param.init_wait = 40000;
  NoiseLevelTracker tracker(param);
  EXPECT_EQ(frame(tracker, 5.0f), 5.0f);
  param.init_wait = 32767;
  NoiseLevelTracker longest(param);
  for (int i = 1; i <= 32767; ++i) ASSERT_EQ(frame(longest, 5.0f), 100.0f) << i;
  EXPECT_EQ(frame(longest, 5.0f), 5.0f);
}

TEST(NoiseLevelTracker, WindowBNeverEndsWhereTwoCyclesAreMoreThanAWordHolds) {
  EXPECT_EQ(last_frame_of_dip(one_band(7, 16383), 1, true, 100000), 32766);
  EXPECT_EQ(last_frame_of_dip(one_band(7, 16384), 1, true, 100000), 100000);
  EXPECT_EQ(last_frame_of_dip(one_band(7, 20000), 1, true, 100000), 100000);
  EXPECT_EQ(last_frame_of_dip(one_band(20000, 20000), 1, false, 100000), 100000);
}

TEST(NoiseLevelTracker, TheVoiceLimitEndsNoWindowWhereItIsMoreThanAWordHolds) {
  const auto last_frame_under_changing_voice = [](std::uint16_t V) {
    const NlBlock param = one_band(V, V);
    NoiseLevelTracker tracker(param);
    int last = 0;
    for (int i = 1; i <= 100000; ++i) {
      if (frame(tracker, i == 1 ? 10.0f : 50.0f, i % 2 != 0) == 10.0f) last = i;
    }
    return last;
  };
  // A ends at 2 V + 1, when B's count starts again and passes V at 3 V + 2; C passed 2 V meanwhile.
  EXPECT_EQ(last_frame_under_changing_voice(10000), 30002);
  EXPECT_EQ(last_frame_under_changing_voice(20000), 100000);
}

TEST(NoiseLevelTracker, WithoutVoiceTheCycleIsThatOfNoise) {
  const NlBlock param = one_band(7, 100);
  EXPECT_EQ(last_frame_of_dip(param, 1, false, 100), 14);
  EXPECT_EQ(last_frame_of_dip(param, 8, false, 100), 21);
}

TEST(NoiseLevelTracker, AChangeOfTheVoiceFlagStartsTheCycleAnew) {
  NlBlock param = one_band(10, 100);
  NoiseLevelTracker tracker(param);
  for (int i = 1; i <= 9; ++i) frame(tracker, 10.0f, false);
  frame(tracker, 10.0f, true);  // the first of a hundred
  for (int i = 2; i <= 5; ++i) frame(tracker, 10.0f, true);
  frame(tracker, 50.0f, false);  // the first of ten
  for (int i = 2; i <= 20; ++i) EXPECT_EQ(frame(tracker, 50.0f, false), 10.0f) << i;
  EXPECT_EQ(frame(tracker, 50.0f, false), 50.0f);
}

/// The flag changes before any cycle ends: only the limits of 2 V frames are left.
TEST(NoiseLevelTracker, WindowsEndByTheVoiceLimitWhenTheFlagKeepsChanging) {
  NlBlock param = one_band(10, 10);
  NoiseLevelTracker tracker(param);
  // B counts from 0 and passes 20 at frame 21, when C has passed 10: A starts again. C passes 20 in the same frame, but
  // B's count is 0 then and passes 10 at frame 32, when B starts again.
  frame(tracker, 10.0f, true);
  for (int i = 2; i <= 32; ++i) EXPECT_EQ(frame(tracker, 50.0f, i % 2 != 0), 10.0f) << i;
  EXPECT_EQ(frame(tracker, 50.0f, true), 50.0f);
}

TEST(NoiseLevelTracker, TheRestartFlagHoldsTheLevelForSixtyFrames) {
  NlBlock param = one_band(1000, 1000);
  bool restart = false;
  NoiseLevelTracker tracker(param, &restart);
  EXPECT_EQ(frame(tracker, 50.0f), 50.0f);
  restart = true;
  EXPECT_EQ(frame(tracker, 20.0f), 50.0f);
  EXPECT_EQ(frame(tracker, 20.0f), 50.0f);
  restart = false;
  for (int i = 1; i <= 59; ++i) EXPECT_EQ(frame(tracker, 20.0f), 50.0f) << i;
  EXPECT_EQ(frame(tracker, 20.0f), 20.0f);
}

TEST(NoiseLevelTracker, HeldFramesDoNotCount) {
  NlBlock param = one_band(100, 100);
  bool restart = false;
  NoiseLevelTracker tracker(param, &restart);
  EXPECT_EQ(frame(tracker, 10.0f), 10.0f);
  restart = true;
  for (int i = 0; i < 500; ++i) EXPECT_EQ(frame(tracker, 50.0f), 10.0f);
  restart = false;
  for (int i = 0; i < 59; ++i) frame(tracker, 50.0f);
  for (int i = 2; i <= 200; ++i) EXPECT_EQ(frame(tracker, 50.0f), 10.0f) << i;
  EXPECT_EQ(frame(tracker, 50.0f), 50.0f);
}

TEST(NoiseLevelTracker, TheRestartFlagIsNotLookedAtForAHundredFramesAfterTheWait) {
  NlBlock param = one_band(1000, 1000);
  param.init_wait = 1;
  const bool restart = true;
  NoiseLevelTracker tracker(param, &restart);
  frame(tracker, 99.0f);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(frame(tracker, 90.0f - 0.5f * static_cast<float>(i)), 90.0f - 0.5f * static_cast<float>(i));
  EXPECT_EQ(frame(tracker, 20.0f), 40.5f);
}

TEST(NoiseLevelTracker, ResetGoesBackToTheWait) {
  NlBlock param = one_band(10, 10);
  param.init_wait = 1;
  NoiseLevelTracker tracker(param);
  frame(tracker, 10.0f);
  frame(tracker, 10.0f);
  tracker.reset();
  EXPECT_EQ(frame(tracker, 50.0f), 100.0f);
  EXPECT_EQ(frame(tracker, 50.0f), 50.0f);
}

struct Cycles {
  std::uint16_t U, V;
};

class NoiseLevelTrackerCycles : public testing::TestWithParam<Cycles> {};

TEST_P(NoiseLevelTrackerCycles, AgreeWithTheReferenceUnderARandomVoice) {
  const NlBlock param = {.nbin = 60,
                         .init_wait = 5,
                         .update_cycle_noise = GetParam().U,
                         .update_cycle_voice = GetParam().V,
                         .Nin_init = 100.0f};
  NoiseLevelTracker tracker(param);
  reference::NoiseLevelTracker expected(param);
  std::mt19937 random(7);
  std::uniform_real_distribution<float> level(1.0f, 120.0f);
  bool voice = false;
  for (int i = 0; i < 5000; ++i) {
    std::vector<float> input(60);
    for (float& x : input) x = level(random);
    if (random() % 40 == 0) voice = !voice;
    tracker.process(input, voice);
    expected.process({input.begin(), input.end()}, voice);
    for (std::size_t k = 0; k < 60; ++k) ASSERT_EQ(tracker.level()[k], expected.level[k]) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, NoiseLevelTrackerCycles,
                         testing::Values(Cycles{30, 50}, Cycles{50, 30}, Cycles{20, 20}, Cycles{1, 1}, Cycles{0, 7},
                                         Cycles{300, 20}, Cycles{7, 0}));

}  // namespace
}  // namespace sonivo::classic::test
