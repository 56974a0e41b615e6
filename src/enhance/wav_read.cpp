#include "enhance/wav_read.h"

#include <array>
#include <cstring>
#include <optional>

namespace sonivo {

namespace {

constexpr int kNoWav = 1;
constexpr std::uint32_t kFormatBytes = 16;

std::uint32_t number(const std::uint8_t* bytes, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value |= std::uint32_t{bytes[i]} << (8 * i);
  return value;
}

struct ChunkHeader {
  std::array<char, 4> name;
  std::uint32_t bytes;

  bool is(const char* text) const { return std::memcmp(name.data(), text, name.size()) == 0; }
};

/// Nothing at the end of the file and where the length is 0 or negative: there the walk ends.
std::optional<ChunkHeader> next_chunk(std::FILE* file) {
  std::array<std::uint8_t, 8> header;
  if (std::fread(header.data(), 1, header.size(), file) != header.size()) return std::nullopt;
  ChunkHeader chunk{{}, number(header.data() + 4, 4)};
  std::memcpy(chunk.name.data(), header.data(), chunk.name.size());
  if (static_cast<std::int32_t>(chunk.bytes) <= 0) return std::nullopt;
  return chunk;
}

bool read_format(std::FILE* file, WavFormat* format) {
  std::array<std::uint8_t, kFormatBytes> field;
  if (std::fread(field.data(), 1, field.size(), file) != field.size()) return false;
  format->tag = static_cast<std::uint16_t>(number(field.data(), 2));
  format->channels = static_cast<std::uint16_t>(number(field.data() + 2, 2));
  format->rate_hz = number(field.data() + 4, 4);
  format->bits = static_cast<std::uint16_t>(number(field.data() + 14, 2));
  return true;
}

}  // namespace

int wavRead(std::FILE* file, WavFormat* format) {
  if (std::fseek(file, 0, SEEK_END) != 0) return kNoWav;
  const long file_bytes = std::ftell(file);
  std::rewind(file);
  const std::optional<ChunkHeader> riff = next_chunk(file);
  std::array<char, 4> wave;
  if (!riff || !riff->is("RIFF") || std::fread(wave.data(), 1, wave.size(), file) != wave.size() ||
      std::memcmp(wave.data(), "WAVE", wave.size()) != 0) {
    return kNoWav;
  }
  *format = {};
  bool has_format = false;
  while (const std::optional<ChunkHeader> chunk = next_chunk(file)) {
    const long begin = std::ftell(file);
    if (chunk->is("data")) {
      format->data_offset = static_cast<std::uint32_t>(begin);
      format->data_bytes = chunk->bytes;
      format->is_whole = chunk->bytes <= static_cast<std::uint64_t>(file_bytes - begin);
      return has_format && format->channels > 0 ? 0 : kNoWav;
    }
    if (chunk->is("fmt ")) {
      if (chunk->bytes < kFormatBytes || !read_format(file, format)) return kNoWav;
      has_format = true;
    }
    const long padded = static_cast<long>(chunk->bytes) + chunk->bytes % 2;
    if (std::fseek(file, begin + padded, SEEK_SET) != 0) return kNoWav;
  }
  return kNoWav;
}

}  // namespace sonivo
