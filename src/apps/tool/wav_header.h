#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace sonivo::tool {

/// Reads bytes from an offset on and answers how many there were.
using ReadAt = std::function<std::size_t(std::uint64_t offset, std::span<std::byte> bytes)>;

/// Which sampling rates a command takes: those of devices, 44100 and 48000 Hz; the model's 16000 Hz too; or any from
/// 1000 to 384000 Hz.
enum class WavRates { of_devices, of_devices_and_models, any };

enum class WavCoding { integer_pcm, ieee_float };

/// What the head of a WAV file says of its audio, checked against the size of the file.
struct WavHeader {
  WavCoding coding = WavCoding::integer_pcm;
  std::uint16_t channels = 0;  ///< 1 to 4
  std::uint32_t rate_hz = 0;   ///< one of those that will do
  std::uint16_t bits = 0;      ///< 16, 24 or 32
  std::uint64_t frames = 0;    ///< above 0, all inside the file
};

/// Parses the chunks up to the audio. Throws Failure, with `name` in its text, when the file is no WAV file, is damaged
/// or truncated, or holds audio that won't do.
WavHeader read_wav_header(const std::string& name, std::uint64_t file_bytes, const ReadAt& read_at,
                          WavRates rates = WavRates::of_devices);

}  // namespace sonivo::tool
