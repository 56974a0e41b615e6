#pragma once

#include <mutex>
#include <vector>

#include "platform/sim/machine.h"

namespace sonivo::test {

/// One change of an endpoint's volume, as its listeners are told of it.
struct VolumeChange {
  bool muted = false;
  Guid context;

  friend bool operator==(const VolumeChange&, const VolumeChange&) = default;
};

/// Keeps every change of an endpoint's volume in its lifetime.
class VolumeListener final : public IAudioEndpointVolumeCallback {
 public:
  explicit VolumeListener(sim::EndpointModel& endpoint) : endpoint_(endpoint) {
    endpoint_.volume().callbacks().add(this);
  }
  ~VolumeListener() { endpoint_.volume().callbacks().remove(this); }

  Status QueryInterface(const Guid&, void**) override { return kNoInterface; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  Status OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) override {
    const std::lock_guard lock(mutex_);
    changes_.push_back({data->bMuted, data->guidEventContext});
    return kOk;
  }

  std::vector<VolumeChange> changes() const {
    const std::lock_guard lock(mutex_);
    return changes_;
  }

 private:
  sim::EndpointModel& endpoint_;
  mutable std::mutex mutex_;
  std::vector<VolumeChange> changes_;
};

}  // namespace sonivo::test
