#pragma once

#include "base/guid.h"
#include "base/status.h"
#include "platform/unknown.h"

namespace sonivo {

struct AUDIO_VOLUME_NOTIFICATION_DATA {
  Guid guidEventContext;  ///< of the caller who made the change; all zero when it gave none
  bool bMuted = false;
  float fMasterVolume = 0.0f;  ///< scalar, as level_scalar()
};

class IAudioEndpointVolumeCallback : public IUnknown {
 public:
  virtual Status OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) = 0;

 protected:
  ~IAudioEndpointVolumeCallback() = default;
};

/// Mute and level of one endpoint. Every change is told to all registered callbacks, on a thread of the machine's own,
/// with the context that the caller gave.
class EndpointVolume {
 public:
  virtual ~EndpointVolume() = default;
  virtual Status mute(bool& muted) = 0;
  virtual Status set_mute(bool muted, const Guid* context) = 0;
  /// From 0 to 1, the full level; above it where a machine amplifies further.
  virtual Status level_scalar(float& level) = 0;
  virtual Status set_level_scalar(float level, const Guid* context) = 0;
  virtual Status register_callback(IAudioEndpointVolumeCallback* callback) = 0;
  /// Afterwards the callback isn't called any more, and no call is under way unless made by the calling thread.
  virtual Status unregister_callback(IAudioEndpointVolumeCallback* callback) = 0;
};

}  // namespace sonivo
