#pragma once

#include <span>

namespace sonivo {

/// What a recording of a voice is judged by before it is enrolled. Levels are of full scale 1.0.
struct VoiceLevel {
  double avg_lvl = 0.0;      ///< mean of the smoothed slope where there is speech; 0 without speech
  float peak_lvl = 0.0f;     ///< its highest
  double signal = 0.0;       ///< mean magnitude where there is speech; 0 without
  double noise = 0.0;        ///< mean magnitude where there is background; 0 without
  double active_rate = 0.0;  ///< share of the samples that are speech
};

/// Tells speech from background sample by sample: speech is where the slope, smoothed over some 200 samples, survives
/// the noise reduction. plain, denoised: the same recording, of the same length.
VoiceLevel measure_voice_level(std::span<const float> plain, std::span<const float> denoised);

/// 0: fit for use. Otherwise, in this order, LEVEL_TOO_SMALL or LOW_SNR of enhance/result.h, with a line in the log.
int judge_voice_level(const VoiceLevel& level);

}  // namespace sonivo
