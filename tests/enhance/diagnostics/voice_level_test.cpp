#include "enhance/voice_level.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "enhance/result.h"

namespace sonivo::test {
namespace {

/// The measure as it is defined, with a double where the program has a float.
struct Reference {
  double avg_lvl = 0, peak_lvl = 0, signal = 0, noise = 0, active_rate = 0;
};
Reference reference(const std::vector<float>& p, const std::vector<float>& d) {
  double e_p = 0, e_d = 0, sum_e = 0, sum_s = 0, sum_n = 0, peak = 0;
  int active = 0, inactive = 0;
  for (std::size_t i = 0; i + 1 < p.size(); ++i) {
    e_d = 0.995 * e_d + 0.005 * std::fabs(double(d[i + 1]) - d[i]);
    e_p = 0.995 * e_p + 0.005 * std::fabs(double(p[i + 1]) - p[i]);
    if (e_d > 0.0003 && e_d > 0.5 * e_p) {
      sum_e += e_p;
      sum_s += std::fabs(p[i + 1]);
      peak = std::max(peak, e_p);
      ++active;
    } else if (0.25 * e_p > e_d || 0.0001 > e_d) {
      sum_n += std::fabs(p[i + 1]);
      ++inactive;
    }
  }
  return {sum_e / active, peak, sum_s / active, sum_n / inactive, active / static_cast<double>(p.size())};
}

std::vector<float> tone(std::size_t samples, double amplitude) {
  std::vector<float> x(samples);
  for (std::size_t i = 0; i < samples; ++i) x[i] = static_cast<float>(amplitude * std::sin(0.05 * double(i)));
  return x;
}

TEST(VoiceLevel, IsThatOfItsDefinition) {
  std::vector<float> plain = tone(20000, 0.2);
  std::vector<float> denoised = plain;
  for (std::size_t i = 8000; i < 12000; ++i) {  // a pause with noise that is taken away
    plain[i] = (i % 2 == 0 ? 0.01f : -0.01f);
    denoised[i] = 0.0f;
  }
  const VoiceLevel level = measure_voice_level(plain, denoised);
  const Reference expected = reference(plain, denoised);
  EXPECT_NEAR(level.avg_lvl, expected.avg_lvl, 1e-7);
  EXPECT_NEAR(level.peak_lvl, expected.peak_lvl, 1e-7);
  EXPECT_NEAR(level.signal, expected.signal, 1e-5);
  EXPECT_NEAR(level.noise, expected.noise, 1e-5);
  EXPECT_NEAR(level.active_rate, expected.active_rate, 2e-4);
  EXPECT_GT(expected.active_rate, 0.5);
  EXPECT_LT(expected.active_rate, 0.9);
}

TEST(VoiceLevel, OfSilenceIsZeroAndTooSmall) {
  const std::vector<float> silence(5000, 0.0f);
  const VoiceLevel level = measure_voice_level(silence, silence);
  EXPECT_EQ(level.avg_lvl, 0.0);
  EXPECT_EQ(level.signal, 0.0);
  EXPECT_EQ(level.noise, 0.0);
  EXPECT_EQ(level.active_rate, 0.0);
  EXPECT_EQ(judge_voice_level(level), ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL);
}

TEST(VoiceLevel, OfASingleSampleIsZero) {
  const std::vector<float> sample(1, 0.5f);
  EXPECT_EQ(measure_voice_level(sample, sample).active_rate, 0.0);
}

TEST(VoiceLevel, OfAVoiceThroughoutIsFit) {
  const std::vector<float> voice = tone(20000, 0.2);
  EXPECT_EQ(judge_voice_level(measure_voice_level(voice, voice)), 0);
}

TEST(VoiceLevel, MustReachItsLeastValue) {
  VoiceLevel level{.avg_lvl = 0.001, .peak_lvl = 0.01f, .signal = 0.1, .noise = 0.01, .active_rate = 0.5};
  EXPECT_EQ(judge_voice_level(level), 0);
  level.avg_lvl = 0.000999;
  EXPECT_EQ(judge_voice_level(level), ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL);
}

TEST(VoiceLevel, MustStandOutOfTheNoise) {
  VoiceLevel level{.avg_lvl = 0.01, .peak_lvl = 0.01f, .signal = 1.8, .noise = 1.0, .active_rate = 0.5};
  EXPECT_EQ(judge_voice_level(level), 0);
  level.noise = 1.001;
  EXPECT_EQ(judge_voice_level(level), ERROR_AI_SPEECH_ENHANCE_LOW_SNR);
}

TEST(VoiceLevel, MustFillThreeTenthsOfTheRecording) {
  VoiceLevel level{.avg_lvl = 0.01, .peak_lvl = 0.01f, .signal = 0.1, .noise = 0.01, .active_rate = 0.3};
  EXPECT_EQ(judge_voice_level(level), 0);
  level.active_rate = 0.2999;
  EXPECT_EQ(judge_voice_level(level), ERROR_AI_SPEECH_ENHANCE_LOW_SNR);
}

TEST(VoiceLevel, TooSmallIsSaidBeforeTooNoisy) {
  const VoiceLevel level{.avg_lvl = 0.0001, .peak_lvl = 0.0f, .signal = 0.0, .noise = 1.0, .active_rate = 0.0};
  EXPECT_EQ(judge_voice_level(level), ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL);
}

}  // namespace
}  // namespace sonivo::test
