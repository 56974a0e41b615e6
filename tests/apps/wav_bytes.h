#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "../support/temporary_folder.h"

namespace sonivo::tool {

inline std::string little_endian(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  return text;
}

/// A WAV file, field by field, so that a test can get any of them wrong.
struct WavBytes {
  std::uint16_t tag = 1;
  std::uint16_t channels = 1;
  std::uint32_t rate_hz = 48000;
  std::uint16_t bits = 16;
  std::optional<std::uint16_t> block_align;
  std::optional<std::uint32_t> byte_rate;
  std::optional<std::uint16_t> valid_bits;  ///< of an extensible format
  std::optional<std::uint32_t> data_size;   ///< what the head claims
  std::string audio;

  std::uint16_t frame_bytes() const { return block_align.value_or(static_cast<std::uint16_t>(channels * (bits / 8))); }

  std::string format_chunk() const {
    const bool extensible = tag == 0xFFFE;
    std::string text = "fmt " + little_endian(extensible ? 40 : 16, 4) + little_endian(tag, 2) +
                       little_endian(channels, 2) + little_endian(rate_hz, 4) +
                       little_endian(byte_rate.value_or(rate_hz * frame_bytes()), 4) + little_endian(frame_bytes(), 2) +
                       little_endian(bits, 2);
    if (extensible) {
      const std::string pcm_guid_tail("\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 14);
      text += little_endian(22, 2) + little_endian(valid_bits.value_or(bits), 2) +
              little_endian((1u << channels) - 1, 4) + little_endian(1, 2) + pcm_guid_tail;
    }
    return text;
  }

  std::string data_chunk() const {
    return "data" + little_endian(data_size.value_or(static_cast<std::uint32_t>(audio.size())), 4) + audio;
  }

  std::string text() const { return riff(format_chunk() + data_chunk()); }

  static std::string riff(const std::string& chunks, const std::string& name = "RIFF") {
    return name + little_endian(chunks.size() + 4, 4) + "WAVE" + chunks;
  }
};

using sonivo::test::TemporaryFolder;

inline std::string bytes_of_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace sonivo::tool
