#include "enhance/voice_level.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "enhance/log.h"
#include "enhance/result.h"

namespace sonivo {

namespace {

constexpr double kKept = 0.995;
constexpr double kNew = 0.005;
constexpr double kLeastSlope = 0.0003;       // of speech, denoised
constexpr double kSpeechShare = 0.5;         // of the plain slope that speech keeps when it is denoised
constexpr double kBackgroundShare = 0.25;    // of the plain slope below which what is left is background
constexpr double kBackgroundSlope = 0.0001;  // denoised, below which all is background
constexpr double kLeastLevel = 0.001;        // of avg_lvl
constexpr double kLeastRatio = 1.8;          // of signal to noise
constexpr double kLeastActive = 0.3;         // of active_rate

/// One step of the recursive mean of |x[i+1] - x[i]|, in double arithmetic on a float.
float smoothed_slope(float slope, std::span<const float> x, std::size_t i) {
  return static_cast<float>(kKept * slope + kNew * std::abs(double{x[i + 1]} - double{x[i]}));
}

double mean(double sum, std::size_t count) { return count > 0 ? sum / static_cast<double>(count) : 0.0; }

}  // namespace

VoiceLevel measure_voice_level(std::span<const float> plain, std::span<const float> denoised) {
  VoiceLevel level;
  float plain_slope = 0.0f, denoised_slope = 0.0f;
  double slopes = 0.0, speech = 0.0, background = 0.0;
  std::size_t active = 0, inactive = 0;
  for (std::size_t i = 0; i + 1 < plain.size(); ++i) {
    denoised_slope = smoothed_slope(denoised_slope, denoised, i);
    plain_slope = smoothed_slope(plain_slope, plain, i);
    const double magnitude = std::abs(double{plain[i + 1]});
    if (denoised_slope > kLeastSlope && denoised_slope > kSpeechShare * plain_slope) {
      slopes += plain_slope;
      speech += magnitude;
      level.peak_lvl = std::max(level.peak_lvl, plain_slope);
      ++active;
    } else if (kBackgroundShare * plain_slope > denoised_slope || kBackgroundSlope > denoised_slope) {
      background += magnitude;
      ++inactive;
    }
  }
  level.avg_lvl = mean(slopes, active);
  level.signal = mean(speech, active);
  level.noise = mean(background, inactive);
  level.active_rate = mean(static_cast<double>(active), plain.size());
  return level;
}

int judge_voice_level(const VoiceLevel& level) {
  if (level.avg_lvl < kLeastLevel) {
    log_text(LogLevel::error, "MakeAIModel: level error, return ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL\n");
    return ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL;
  }
  if (kLeastRatio * level.noise > level.signal || level.active_rate < kLeastActive) {
    log_text(LogLevel::error, "MakeAIModel: SNR error, return ERROR_AI_SPEECH_ENHANCE_LOW_SNR\n");
    return ERROR_AI_SPEECH_ENHANCE_LOW_SNR;
  }
  return 0;
}

}  // namespace sonivo
