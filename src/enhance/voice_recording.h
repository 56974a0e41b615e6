#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sonivo {

/// A recording of the voice to enroll on its way from the file to the encoder.
struct VoiceRecording {
  std::uint16_t channels = 0;
  std::size_t leng = 0;               ///< frames
  std::vector<std::int16_t> wav_dat;  ///< as read, interleaved
  std::vector<float> f_wav_dat;       ///< full scale 1.0; interleaved, then the mean of the channels in front
  std::vector<float> plain;           ///< copy whose level is measured
  std::vector<float> f_wav_dat_16k;   ///< the same, denoised; at the file's rate in spite of its name
};

}  // namespace sonivo
