#include "platform/wave_format.h"

namespace sonivo {

bool IsConsistent(const WAVEFORMATEXTENSIBLE& format) {
  constexpr std::uint32_t kBlocksPerSec = 100;
  return format.nSamplesPerSec >= kBlocksPerSec && format.nBlockAlign != 0 && format.wBitsPerSample % 8 == 0 &&
         format.nBlockAlign == format.nChannels * (format.wBitsPerSample / 8);
}

WAVEFORMATEXTENSIBLE pcm_format(std::uint32_t rate_hz, std::uint16_t bits, std::uint16_t channels) {
  constexpr std::uint16_t kFormatExtensible = 0xFFFE;
  constexpr std::uint16_t kExtraBytes = 22;
  constexpr Guid kSubtypePcm{0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
  WAVEFORMATEXTENSIBLE format;
  format.wFormatTag = kFormatExtensible;
  format.nChannels = channels;
  format.nSamplesPerSec = rate_hz;
  format.nBlockAlign = static_cast<std::uint16_t>(channels * (bits / 8));
  format.nAvgBytesPerSec = rate_hz * format.nBlockAlign;
  format.wBitsPerSample = bits;
  format.cbSize = kExtraBytes;
  format.wValidBitsPerSample = bits;
  format.dwChannelMask = (1u << channels) - 1;
  format.SubFormat = kSubtypePcm;
  return format;
}

}  // namespace sonivo
