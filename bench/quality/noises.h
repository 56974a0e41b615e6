#pragma once

#include <span>
#include <string>
#include <vector>

#include "quality/signal.h"
#include "quality/voices.h"

namespace sonivo::bench {

enum class NoiseKind { white, pink, fan, babble, keys, thumps };

inline constexpr NoiseKind kNoiseKinds[] = {NoiseKind::white,  NoiseKind::pink, NoiseKind::fan,
                                            NoiseKind::babble, NoiseKind::keys, NoiseKind::thumps};

const char* name_of(NoiseKind kind);
bool is_stationary(NoiseKind kind);  ///< white, pink, fan
bool is_transient(NoiseKind kind);   ///< keys, thumps

/// One blow of a transient noise.
struct Blow {
  std::size_t onset;
  bool press;  ///< a key goes down; false for its release and for thumps
};

struct Noise {
  Signal samples;           ///< of power 1: on the whole, or over the blows where the noise is made of these
  std::vector<Blow> blows;  ///< in order of time
};

/// The noise behind voice number `voice`, always the same.
///   white   Gaussian
///   pink    Gaussian, 3 dB less per octave from 20 Hz on
///   fan     24 harmonics of a blade frequency near 115 Hz that wanders by 1 %, and as much broad noise that falls from
///           500 Hz on
///   babble  all other voices, twice each and out of step
///   keys    strokes every 70 to 400 ms, 16 dB from the weakest to the strongest, each with its own four to seven
///           resonances of 0.25 to 9 kHz and decays of 2 to 30 ms behind a broad burst, and a weaker release
///   thumps  every 0.5 to 1.8 s, two resonances of 35 to 140 Hz with decays of 30 to 120 ms and a soft burst
Noise make_noise(NoiseKind kind, std::size_t voice, std::span<const Voice> voices);

/// How long a blow counts as sounding: 40 ms for keys, 100 ms for thumps.
std::size_t blow_frames(NoiseKind kind);

}  // namespace sonivo::bench
