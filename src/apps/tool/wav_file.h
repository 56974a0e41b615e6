#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "apps/tool/float_audio.h"
#include "apps/tool/output_file.h"
#include "apps/tool/pcm_audio.h"
#include "apps/tool/wav_header.h"

namespace sonivo::tool {

/// Reads a whole WAV file (16, 24, 32-bit PCM or float; 44100 or 48000 Hz, or any rate; 1 to 4 channels) as samples of
/// `bits` bits, without it of 24 when the file has more than 16, else of 16. Throws Failure.
PcmAudio read_wav(const std::string& path, std::optional<std::uint16_t> bits, WavRates rates = WavRates::of_devices);

/// The same with every sample as it stands in the file; of 32 bits the upper 24 count.
FloatAudio read_wav_float(const std::string& path);

/// Writes a WAV file of the audio's own width, or of 32-bit float. Throws Failure; the file is then not to be
/// committed.
void write_wav(OutputFile& file, const PcmAudio& audio);
void write_wav(OutputFile& file, const FloatAudio& audio);

/// A WAV file of any length that is read piece by piece. Throws Failure.
class WavInput {
 public:
  WavInput(const std::string& path, WavRates rates);
  ~WavInput();

  const WavHeader& header() const;
  /// The next frames, as many as there is room for; fewer at the end of the file. Answers their number.
  std::size_t read(std::span<float> interleaved);

 private:
  struct Open;
  std::unique_ptr<Open> open_;
};

/// A WAV file of 32-bit float that is written piece by piece, as the one that holds `frames` frames in the end. Throws
/// Failure; the file is then not to be committed.
class WavOutput {
 public:
  WavOutput(OutputFile& file, std::uint32_t rate_hz, std::uint16_t channels, std::uint64_t frames);
  ~WavOutput();

  void write(std::span<const float> interleaved);
  /// To be called behind the last frame.
  void close();

 private:
  struct Open;
  std::unique_ptr<Open> open_;
};

}  // namespace sonivo::tool
