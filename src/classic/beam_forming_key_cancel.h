#pragma once

#include "classic/classic_chain.h"

namespace sonivo {

/// Two fixed beams of two microphones, keyboard-noise cancellation on both, noise reduction of the first. All active
/// channels bear the result; only the first two are heard. Version 1.0, blobs of 32636 bytes with major version 1.
class CBeamFormingKeyCancel : public ClassicChain<classic::BeamFormingChannel> {
 public:
  int SetBeamFormingActive(std::uint16_t active);
  int GetBeamFormingActive(std::uint16_t* active) const;
};

}  // namespace sonivo
