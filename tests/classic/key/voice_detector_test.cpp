#include "classic/voice_detector.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace sonivo::classic::test {
namespace {

/// Two coarse bands of two and three fine bands, floors 10 and 20, noise counted double, threshold 2.
VdsBlock two_bands() {
  VdsBlock param{};
  param.nbin = 2;
  param.Nef_floor[0] = 10.0f;
  param.Nef_floor[1] = 20.0f;
  param.Nef_floor[12] = 2.0f;
  param.vd_w[0] = 1.0f;
  param.vd_w[1] = 0.5f;
  param.th_coef = 2.0f;
  param.upc_fb = 3;
  param.dnc_fb = 4;
  return param;
}

constexpr std::array<std::uint16_t, 3> kBounds = {1, 3, 6};
const std::vector<float> kNoise = {1.0f, 1.0f};  // below the floors

class VoiceDetectorTest : public testing::Test {
 protected:
  /// Ref is 2 * (2 * 10 + 3 * 20 * 0.5) = 100 while the noise stays below its floors.
  static std::vector<float> excess_of(float excess) { return {0.0f, 10.0f, 10.0f + excess, 20.0f, 20.0f, 20.0f}; }

  bool frame(bool voiced) {
    detector.process(excess_of(voiced ? 101.0f : 0.0f), kNoise);
    return detector.active();
  }

  /// Whether one frame switches a fresh detector on.
  bool is_voiced(const std::vector<float>& S, const std::vector<float>& L) {
    VdsBlock eager = param;
    eager.upc_fb = 1;
    VoiceDetector fresh(eager, kBounds);
    fresh.process(S, L);
    return fresh.active();
  }

  VdsBlock param = two_bands();
  VoiceDetector detector{param, kBounds};
};

TEST_F(VoiceDetectorTest, AFrameIsVoicedWhenTheExcessPassesTheReference) {
  EXPECT_FALSE(is_voiced(excess_of(100.0f), kNoise));
  EXPECT_TRUE(is_voiced(excess_of(100.1f), kNoise));
}

TEST_F(VoiceDetectorTest, BandsCountByTheirWeight) {
  EXPECT_FALSE(is_voiced({0.0f, 0.0f, 0.0f, 120.0f, 20.0f, 120.0f}, kNoise));
  EXPECT_TRUE(is_voiced({0.0f, 0.0f, 0.0f, 120.2f, 20.0f, 120.2f}, kNoise));
}

TEST_F(VoiceDetectorTest, BandsBelowTheirNoiseDoNotTakeExcessAway) {
  EXPECT_TRUE(is_voiced({0.0f, 0.0f, 111.0f, 0.0f, 0.0f, 0.0f}, kNoise));
}

TEST_F(VoiceDetectorTest, FineBandsOutsideOfTheTableDoNotCount) {
  EXPECT_FALSE(is_voiced({9999.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 9999.0f}, kNoise));
}

TEST_F(VoiceDetectorTest, TheNoiseLevelTimesItsMultiplierTakesOverFromTheFloor) {
  // f = max(2 * 15, 10) = 30 and max(2 * 25, 20) = 50: ref = 2 * (60 + 75) = 270
  const std::vector<float> noise = {15.0f, 25.0f};
  EXPECT_FALSE(is_voiced({0.0f, 0.0f, 300.0f, 0.0f, 0.0f, 0.0f}, noise));
  EXPECT_TRUE(is_voiced({0.0f, 0.0f, 300.1f, 0.0f, 0.0f, 0.0f}, noise));
}

TEST_F(VoiceDetectorTest, SwitchesOnAfterUpcFbVoicedFrames) {
  EXPECT_FALSE(frame(true));
  EXPECT_FALSE(frame(true));
  EXPECT_TRUE(frame(true));
}

TEST_F(VoiceDetectorTest, UnvoicedFramesCountDownToZeroAndNoFurther) {
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(frame(false));
  EXPECT_FALSE(frame(true));
  EXPECT_FALSE(frame(true));
  EXPECT_FALSE(frame(false));
  EXPECT_FALSE(frame(true));
  EXPECT_TRUE(frame(true));
}

TEST_F(VoiceDetectorTest, TheFrameThatSwitchesOnLeavesTheCounterAtUpcFb) {
  for (int i = 0; i < 3; ++i) frame(true);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(frame(false)) << i;  // 3 counts down to 0
  EXPECT_FALSE(frame(false));
}

TEST_F(VoiceDetectorTest, WithoutRiseTimeAVoicedFrameCountsForNoMoreThanItself) {
  param.upc_fb = 0;
  EXPECT_FALSE(frame(false));
  EXPECT_TRUE(frame(true));
  EXPECT_FALSE(frame(false));
}

TEST_F(VoiceDetectorTest, ASingleVoicedFrameArmsTheWholeHangOverAgain) {
  for (int i = 0; i < 3; ++i) frame(true);
  for (int i = 0; i < 3; ++i) frame(false);
  EXPECT_TRUE(frame(true));
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(frame(false)) << i;
  EXPECT_FALSE(frame(false));
}

TEST_F(VoiceDetectorTest, NeverCountsAsFarAsARiseTimeBeyond16Bits) {
  param.upc_fb = 40000;  // the counter goes from 32767 to -32768, and from there to 0
  for (int i = 0; i < 100000; ++i) ASSERT_FALSE(frame(true)) << i;
}

TEST_F(VoiceDetectorTest, AHangOverBeyond16BitsIsNone) {
  param.dnc_fb = 40000;  // -25536 as the counter takes it
  for (int i = 0; i < 3; ++i) frame(true);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(frame(true)) << i;
  EXPECT_FALSE(frame(false));
  EXPECT_FALSE(frame(true));
  EXPECT_FALSE(frame(true));
  EXPECT_TRUE(frame(true));
}

TEST_F(VoiceDetectorTest, SwitchingOffStartsTheCountFromZero) {
  for (int i = 0; i < 4; ++i) frame(true);
  for (int i = 0; i < 5; ++i) frame(false);
  EXPECT_FALSE(frame(true));
  EXPECT_FALSE(frame(true));
  EXPECT_TRUE(frame(true));
}

TEST_F(VoiceDetectorTest, ResetForgets) {
  for (int i = 0; i < 3; ++i) frame(true);
  detector.reset();
  EXPECT_FALSE(detector.active());
  EXPECT_FALSE(frame(true));
  EXPECT_FALSE(frame(true));
  EXPECT_TRUE(frame(true));
}

}  // namespace
}  // namespace sonivo::classic::test
