// Any bytes are either a WAV file whose audio lies inside it or a Failure with a text of one line.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "apps/tool/failure.h"
#include "apps/tool/wav_header.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace sonivo::tool;
  const auto read_at = [data, size](std::uint64_t offset, std::span<std::byte> bytes) {
    if (offset >= size) return std::size_t{0};
    const std::size_t count = std::min<std::size_t>(bytes.size(), size - offset);
    std::memcpy(bytes.data(), data + offset, count);
    return count;
  };
  try {
    const WavHeader header = read_wav_header("in.wav", size, read_at);
    const std::uint64_t frame_bytes = header.channels * (header.bits / 8u);
    if (header.frames == 0 || frame_bytes == 0 || header.frames > size / frame_bytes) std::abort();
  } catch (const Failure& failure) {
    if (std::string_view(failure.what()).find('\n') != std::string_view::npos) std::abort();
  }
  return 0;
}
