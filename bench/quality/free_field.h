#pragma once

#include <functional>
#include <memory>

#include "peers/enhancer.h"
#include "quality/signal.h"

namespace sonivo::bench {

inline constexpr double kSpacing = 0.06;      ///< m between the microphones, as tools/design-beams assumes
inline constexpr double kOffAxis = 60;        ///< degrees
inline constexpr double kArrayNoiseDb = -70;  ///< of each microphone, white, against full scale

/// Two talkers before two microphones in a free field, as loud as each other and both at once: the target ahead, the
/// other one off axis, on the side of the second microphone or of the first.
struct FreeField {
  FreeField(const Signal& target, const Signal& interferer, bool nearer_to_second);

  Signal target;         ///< at both microphones
  Signal interferer[2];  ///< at either microphone
  Signal self_noise[2];

  /// What the microphones record with the interferer times this gain.
  std::vector<Signal> recorded(double interferer_gain) const;
};

/// How much more of the interferer than of the target an enhancer of so many microphones takes away, in dB. The parts
/// of the output are told apart by turning the interferer round (Hagerman and Olofsson, 2004).
double interferer_attenuation(const std::function<std::unique_ptr<Enhancer>()>& start, std::size_t channels,
                              const FreeField& field);

}  // namespace sonivo::bench
