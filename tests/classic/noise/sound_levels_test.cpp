#include "classic/sound_levels.h"

#include <vector>

#include "noise_parameters.h"

namespace sonivo::classic {
namespace {

/// One coarse band over all bins, and a voice detector that looks at a single fine band.
class SoundLevelsTest : public testing::Test {
 protected:
  SoundLevelsTest() {
    parameters::set_bands(param->head.syk1, {0, 512});
    NoisePath& path = param->noise;
    path.pwr_snd = {1, 0, 100.0f, 0.5f, 0.5f};
    path.pwr_snd_vd = {kMaxBands, 0, 0.0f, 0.0f, 0.0f};  // follows at once
    path.nl_snd = {1, 1000, 10, 10, 0.0f};               // no noise within the test
    path.vds.nbin = 1;
    path.vds.vd_w[0] = 1.0f;
    path.vds.th_coef = 1.0f;
    path.vds.upc_fb = 1;
  }

  /// Whether that band is above level at the detector after a first frame with 800 in all bins.
  bool exceeds(int band, float level) {
    look_at(band, level);
    SoundLevels sound(param->head, param->noise);
    process(sound, 800.0f);
    return sound.voice();
  }

  void look_at(int band, float level) {
    param->head.nbin_param_tbl[0] = std::uint16_t(band);
    param->head.nbin_param_tbl[1] = std::uint16_t(band + 1);
    param->noise.vds.Nef_floor[0] = level / 2;  // the excess over the floor must be more than the floor
  }

  static void process(SoundLevels& sound, float magnitude) {
    const std::vector<ComplexFloat> spectrum(kBins, ComplexFloat{magnitude, 0.0f});
    sound.process(Magnitudes(spectrum));
  }

  std::unique_ptr<KeyCancelParam> param = parameters::blank<KeyCancelParam>();
};

TEST_F(SoundLevelsTest, TheDetectorHearsTheCoarseBands) {
  EXPECT_TRUE(exceeds(0, 799.0f));
  EXPECT_FALSE(exceeds(0, 801.0f));
}

TEST_F(SoundLevelsTest, BehindTheCoarseBandsIsSilence) {
  for (const int band : {1, 2, 12, 23}) EXPECT_FALSE(exceeds(band, 1e-6f)) << band;
}

TEST_F(SoundLevelsTest, TheLevelsOfThisFrameStandFromBand24On) {
  EXPECT_TRUE(exceeds(24, 449.0f));  // 0.5 * 100 + 0.5 * 800
  EXPECT_FALSE(exceeds(24, 451.0f));
  for (const int band : {25, 36, 47}) EXPECT_FALSE(exceeds(band, 1e-6f)) << band;
}

TEST_F(SoundLevelsTest, TheDetectorsOwnLevelsStandFromBand48On) {
  EXPECT_TRUE(exceeds(48, 799.0f));
  EXPECT_FALSE(exceeds(48, 801.0f));
  for (const int band : {49, 59}) EXPECT_FALSE(exceeds(band, 1e-6f)) << band;
}

TEST_F(SoundLevelsTest, StartsFromPinInitAgainAfterReset) {
  look_at(24, 460.0f);
  SoundLevels sound(param->head, param->noise);
  process(sound, 800.0f);
  EXPECT_FALSE(sound.voice());
  process(sound, 800.0f);  // 0.5 * 450 + 0.5 * 800
  EXPECT_TRUE(sound.voice());
  sound.reset();
  EXPECT_FALSE(sound.voice());
  process(sound, 800.0f);
  EXPECT_FALSE(sound.voice());
}

TEST_F(SoundLevelsTest, TheNoiseLevelFollowsTheSmoothedSound) {
  param->noise.nl_snd = {1, 0, 10, 10, 1e6f};
  param->noise.vds.Nef_floor[kCoarseBands] = 1.0f;  // the floor is the noise level, 450
  param->noise.vds.th_coef = 0.7f;
  look_at(0, 0.0f);
  SoundLevels sound(param->head, param->noise);
  process(sound, 800.0f);  // an excess of 350 over 450 * 0.7
  EXPECT_TRUE(sound.voice());
  param->noise.vds.th_coef = 0.8f;
  sound.reset();
  process(sound, 800.0f);
  EXPECT_FALSE(sound.voice());
}

}  // namespace
}  // namespace sonivo::classic
