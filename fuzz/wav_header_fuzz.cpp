// Any bytes are, for each set of sampling rates, either a WAV file whose audio lies inside it or a Failure with a text
// of one line.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "apps/tool/failure.h"
#include "apps/tool/wav_header.h"

namespace {

bool will_do(sonivo::tool::WavRates rates, std::uint32_t rate_hz) {
  using sonivo::tool::WavRates;
  if (rates == WavRates::any) return rate_hz >= 1000 && rate_hz <= 384000;
  if (rates == WavRates::of_devices_and_models && rate_hz == 16000) return true;
  return rate_hz == 44100 || rate_hz == 48000;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace sonivo::tool;
  const auto read_at = [data, size](std::uint64_t offset, std::span<std::byte> bytes) {
    if (offset >= size) return std::size_t{0};
    const std::size_t count = std::min<std::size_t>(bytes.size(), size - offset);
    std::memcpy(bytes.data(), data + offset, count);
    return count;
  };
  for (const WavRates rates : {WavRates::of_devices, WavRates::of_devices_and_models, WavRates::any}) {
    try {
      const WavHeader header = read_wav_header("in.wav", size, read_at, rates);
      const std::uint64_t frame_bytes = header.channels * (header.bits / 8u);
      if (header.frames == 0 || frame_bytes == 0 || header.frames > size / frame_bytes) std::abort();
      if (!will_do(rates, header.rate_hz)) std::abort();
    } catch (const Failure& failure) {
      if (std::string_view(failure.what()).find('\n') != std::string_view::npos) std::abort();
    }
  }
  return 0;
}
