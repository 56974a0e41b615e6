#pragma once

#include <filesystem>
#include <string>

namespace sonivo {

/// Paths of the model files of one row: the smaller its number, the larger the models.
struct ModelRow {
  std::string speech_enhancement;
  std::string target_speaker;
  std::string speaker_encoder;
};

inline constexpr int kFirstModelNo = 1;
inline constexpr int kLastModelNo = 3;

/// no: 1 to 3.
ModelRow GetModelRow(const std::filesystem::path& folder, int no);

}  // namespace sonivo
