#pragma once

#include <cstdint>
#include <string_view>

#include "base/status.h"

namespace sonivo {

/// What the host may ask of the microphone.
class IVolumeControl {
 public:
  virtual Status SetMuteAction(bool mute) = 0;
  /// On failure the microphone counts as muted.
  virtual Status GetMute(std::uint32_t* muted) = 0;
  /// Succeeds when the physical microphone's friendly name contains the text.
  virtual Status CheckDeviceName(std::string_view text) = 0;

 protected:
  ~IVolumeControl() = default;
};

}  // namespace sonivo
