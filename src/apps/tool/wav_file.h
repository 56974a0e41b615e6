#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "apps/tool/float_audio.h"
#include "apps/tool/output_file.h"
#include "apps/tool/pcm_audio.h"

namespace sonivo::tool {

/// Reads a whole WAV file (16, 24, 32-bit PCM or float; 44100 or 48000 Hz; 1 to 4 channels) as samples of `bits` bits,
/// without it of 24 when the file has more than 16, else of 16. Throws Failure.
PcmAudio read_wav(const std::string& path, std::optional<std::uint16_t> bits);

/// The same with every sample as it stands in the file; of 32 bits the upper 24 count.
FloatAudio read_wav_float(const std::string& path);

/// Writes a WAV file of the audio's own width, or of 32-bit float. Throws Failure; the file is then not to be
/// committed.
void write_wav(OutputFile& file, const PcmAudio& audio);
void write_wav(OutputFile& file, const FloatAudio& audio);

}  // namespace sonivo::tool
