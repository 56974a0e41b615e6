#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace sonivo::tool {

/// Reads bytes from an offset on and answers how many there were.
using ReadAt = std::function<std::size_t(std::uint64_t offset, std::span<std::byte> bytes)>;

enum class WavCoding { integer_pcm, ieee_float };

/// What the head of a WAV file says of its audio, checked against the size of the file.
struct WavHeader {
  WavCoding coding = WavCoding::integer_pcm;
  std::uint16_t channels = 0;  ///< 1 to 4
  std::uint32_t rate_hz = 0;   ///< 44100 or 48000
  std::uint16_t bits = 0;      ///< 16, 24 or 32
  std::uint64_t frames = 0;    ///< above 0, all inside the file
};

/// Parses the chunks up to the audio. Throws Failure, with `name` in its text, when the file is no WAV file, is damaged
/// or truncated, or holds audio that can't be relayed.
WavHeader read_wav_header(const std::string& name, std::uint64_t file_bytes, const ReadAt& read_at);

}  // namespace sonivo::tool
