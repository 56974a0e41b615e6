#pragma once

#include <algorithm>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "classic/param_blobs.h"
#include "quality/measure.h"
#include "quality/voices.h"

namespace sonivo::bench {

/// What is asked for.
struct Plan {
  classic::KeyCancelParam key_cancel;
  classic::BeamFormingKeyCancelParam beam_forming;
  std::vector<std::string> only;  ///< of part_names(), or empty: all
  bool alone = false;             ///< without the peers
  bool quick = false;             ///< two voices at one ratio
  std::filesystem::path cache;

  bool wants(const std::string& part) const {
    return only.empty() || std::find(only.begin(), only.end(), part) != only.end();
  }
};

/// The noises, "quiet", "silence" and "beam".
std::vector<std::string> part_names();

/// One noise at one signal-to-noise ratio, or the mean over all of them; means over the voices.
struct Row {
  std::optional<double> snr_db;  ///< none for the mean
  Scores unprocessed;
  std::vector<Scores> systems;  ///< the first is ours
};

struct NoiseTable {
  NoiseKind kind;
  std::vector<std::string> systems;
  std::vector<Row> rows;  ///< the last is the mean
};

/// SI-SDR of speech without noise, dB.
struct QuietTable {
  enum class Kind {
    microphone,  ///< with the noise of the microphone
    silence,     ///< with digital silence between the words; behind the systems stands what chains of gain 1 reach
    stages,      ///< the same, against what chains of gain 1 make of it instead of against the speech
  };
  struct Row {
    std::string voice;
    std::vector<double> si_sdr;  ///< behind each system
  };
  Kind kind;
  std::vector<std::string> systems;  ///< first our key-cancel chain, then our beamforming chain
  std::vector<Row> rows;

  const char* name() const;  ///< of the kind
  double worst(std::size_t system) const;
};

/// A figure for every system.
struct Figure {
  std::string system;
  double value = 0;
};

struct Results {
  std::vector<NoiseTable> noises;
  std::vector<QuietTable> quiet;  ///< with the microphone's own noise; with digital silence between the words
  /// Attenuation of the interferer against the target, dB: the beamforming chain, one microphone through the key-cancel
  /// chain, WebRTC's beamformer with noise suppression. Means over the voices.
  std::vector<Figure> beam;
};

/// One noise with every voice at every ratio: all voices at the first ratio, at the second, and so on.
struct Recordings {
  Recordings(NoiseKind kind, std::span<const Voice> voices, std::span<const double> snrs_db);

  NoiseKind kind;
  std::vector<double> snrs_db;
  std::vector<Recording> recordings;
  std::vector<Scores> unprocessed;
};

/// The recordings that a plan wants, made once, to measure any number of parameters on. Throws std::exception.
class QualitySet {
 public:
  explicit QualitySet(const Plan& plan);
  /// Everything the plan wants, with its parameters, on all cores. Throws std::exception.
  Results measure(const Plan& plan) const;

 private:
  std::vector<Voice> voices_;
  std::vector<Recordings> recordings_;
};

}  // namespace sonivo::bench
