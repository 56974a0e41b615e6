#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sonivo::tool {

/// How a processed signal lies against the clean one.
struct Alignment {
  enum class Outcome { found, reference_silent, no_resemblance };
  Outcome outcome = Outcome::reference_silent;
  std::int64_t delay = 0;  ///< frames by which it is late; negative when it is early
  bool inverted = false;
};

/// Searches delays of -max_frames to max_frames for the highest normalised correlation, of either sign, of an energetic
/// stretch of the reference with the test, which must hold over all that they share. Both may be longer than the other.
/// The shortest of equal delays counts; inverted is only what is clearly more alike that way.
Alignment align(std::span<const float> reference, std::span<const float> test, std::size_t max_frames);

}  // namespace sonivo::tool
