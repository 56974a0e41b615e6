#pragma once

#include <cstdint>

#include "base/guid.h"

namespace sonivo {

/// Format of a PCM stream, 40 bytes on the driver's wire.
#pragma pack(push, 1)
struct WAVEFORMATEXTENSIBLE {
  std::uint16_t wFormatTag = 0;
  std::uint16_t nChannels = 0;
  std::uint32_t nSamplesPerSec = 0;
  std::uint32_t nAvgBytesPerSec = 0;
  std::uint16_t nBlockAlign = 0;  ///< bytes of one frame
  std::uint16_t wBitsPerSample = 0;
  std::uint16_t cbSize = 0;
  std::uint16_t wValidBitsPerSample = 0;
  std::uint32_t dwChannelMask = 0;
  Guid SubFormat;

  friend bool operator==(const WAVEFORMATEXTENSIBLE&, const WAVEFORMATEXTENSIBLE&) = default;
};
#pragma pack(pop)
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);

/// Whether the fields agree on the sizes: packed samples of whole bytes, nothing of size 0, and at least one frame in
/// 10 ms. The byte rate, which nothing reads, may be anything.
bool IsConsistent(const WAVEFORMATEXTENSIBLE& format);

/// Integer PCM with packed samples of `bits` bits.
WAVEFORMATEXTENSIBLE pcm_format(std::uint32_t rate_hz, std::uint16_t bits, std::uint16_t channels);

}  // namespace sonivo
