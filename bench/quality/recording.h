#pragma once

#include <vector>

#include "quality/noises.h"
#include "quality/signal.h"

namespace sonivo::bench {

inline constexpr double kSelfNoiseDb = -80;  ///< of the microphone, white, against full scale

/// That noise, always the same.
Signal self_noise(std::size_t frames);

/// One voice and one noise before one microphone.
struct Recording {
  Recording(const Signal& speech, const Noise& noise, NoiseKind kind, double snr_db);

  Signal speech;
  Signal noise;
  Signal mixture;                    ///< both and the microphone's own noise
  std::vector<std::size_t> presses;  ///< of keys
  std::vector<bool> blows;           ///< frames in which they sound; empty for other noises

  /// mixture + gain * noise
  Signal with_noise(double gain) const;
};

}  // namespace sonivo::bench
