#include "classic/beam_forming_key_cancel.h"

#include "classic/beam_forming_channel.h"

namespace sonivo {

int CBeamFormingKeyCancel::SetBeamFormingActive(std::uint16_t active) {
  return SetBypass(&classic::BeamFormingChannel::beamBypass, active);
}

int CBeamFormingKeyCancel::GetBeamFormingActive(std::uint16_t* active) const {
  return GetBypass(&classic::BeamFormingChannel::beamBypass, active);
}

}  // namespace sonivo
