#pragma once

#include <optional>
#include <string>
#include <vector>

#include "quality/recording.h"
#include "quality/systems.h"

namespace sonivo::bench {

inline constexpr double kSnrsDb[] = {0, 5, 10, 20};

/// What a system made of one voice in one noise.
struct Scores {
  double segmental_snr = 0;  ///< dB; levels are not matched, for nobody
  double stoi = 0;
  /// Of transient noises, in dB: the energy of the blows over what is left where they sound.
  /// In pauses of the speech, all that is left:
  double off_in_pauses = 0;
  /// Under speech, what the blows change: the output minus the output for the same recording without them. This
  /// counts what goes missing of the speech, too.
  double off_under_speech = 0;
  /// Under speech, what is left of the blows alone: half the output minus half the output for the recording with the
  /// blows turned round (B. Hagerman, A. Olofsson, "A method to measure the effect of noise reduction algorithms using
  /// simultaneous speech and noise", Acta Acustica 90, 2004).
  double blows_off_under_speech = 0;
};

/// The mean of several.
Scores mean(std::span<const Scores> scores);

/// Of the recording as it is.
Scores unprocessed(const Recording& recording);
Scores score(const System& system, const Recording& recording);

/// What a system makes of a recording that reaches all its microphones at once, its delay taken back.
Signal heard_from(const System& system, const Signal& recorded);
/// Scale-invariant signal-to-distortion ratio, in dB.
double si_sdr_of(const Signal& speech, const Signal& heard);

}  // namespace sonivo::bench
