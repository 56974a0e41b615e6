#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quality/signal.h"

namespace sonivo::bench {

inline constexpr double kSpeechLevelDb = -26;  ///< active level against full scale
inline constexpr double kLeadMs = 1500;        ///< silence in front, in which everybody can learn the noise

/// A talker: some sentences with pauses of digital silence between them.
struct Voice {
  std::string name;
  Signal speech;
};

/// Five synthesised talkers of both sexes. espeak-ng speaks them once into the cache folder, which is made if need be.
/// Throws std::runtime_error.
std::vector<Voice> speak(const std::filesystem::path& cache);

}  // namespace sonivo::bench
