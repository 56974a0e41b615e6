#pragma once

#include "platform/endpoint_volume.h"
#include "platform/sim/callbacks.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

/// Mute and level of one endpoint. Every set is told to all callbacks, also when it changes nothing.
class VolumeModel {
 public:
  VolumeModel(Scheduler& scheduler, float level) : scheduler_(scheduler), callbacks_(scheduler), level_(level) {}

  bool muted() const;
  float level() const;
  /// A null context is told as all zero, as is the hand of the user.
  void set_mute(bool muted, const Guid* context = nullptr);
  void set_level(float level, const Guid* context = nullptr);
  Callbacks<IAudioEndpointVolumeCallback>& callbacks() { return callbacks_; }

 private:
  void tell(const Guid* context);

  Scheduler& scheduler_;
  Callbacks<IAudioEndpointVolumeCallback> callbacks_;
  bool muted_ = false;
  float level_;
};

}  // namespace sonivo::sim
