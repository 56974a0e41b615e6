#pragma once

#include <cstdint>
#include <cstdio>

namespace sonivo {

/// What the header of a WAV file tells of its samples.
struct WavFormat {
  std::uint16_t tag = 0;  ///< 1: PCM
  std::uint16_t channels = 0;
  std::uint16_t bits = 0;
  std::uint32_t rate_hz = 0;
  std::uint32_t data_offset = 0;  ///< from the start of the file, in bytes
  std::uint32_t data_bytes = 0;   ///< as the header states them
  bool is_whole = false;          ///< the file holds as many
};

/// Reads the chunks of a RIFF WAVE file up to its samples; other chunks than "fmt " are passed over by their length, in
/// whole 16-bit words. 0 on success; the file then stands where the samples begin. Otherwise the file is no such WAV
/// or states no samples.
int wavRead(std::FILE* file, WavFormat* format);

}  // namespace sonivo
