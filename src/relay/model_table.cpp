#include "relay/model_table.h"

#include <array>

namespace sonivo {
namespace {

struct FileNames {
  const char* speech_enhancement;
  const char* target_speaker;
  const char* speaker_encoder;
};

constexpr std::array<FileNames, 3> kFiles{{
    {"model_se_streaming_RTF0.5_v2.bin", "model_tsse_streaming_rtf0.5_v2.bin", "model_spkenc_rtf0.5_v2.bin"},
    {"model_se_streaming_RTF0.25_v2.bin", "model_tsse_streaming_rtf0.25_v2.bin", "model_spkenc_rtf0.25_v2.bin"},
    {"model_se_streaming_RTF0.10_v2.bin", "model_tsse_streaming_rtf0.10_v2.bin", "model_spkenc_rtf0.10_v2.bin"},
}};

}  // namespace

ModelRow GetModelRow(const std::filesystem::path& folder, int no) {
  const FileNames& files = kFiles.at(static_cast<std::size_t>(no - kFirstModelNo));
  return {.speech_enhancement = folder / files.speech_enhancement,
          .target_speaker = folder / files.target_speaker,
          .speaker_encoder = folder / files.speaker_encoder};
}

}  // namespace sonivo
