#include "platform/sim/volume.h"

namespace sonivo::sim {

bool VolumeModel::muted() const {
  std::scoped_lock lock(scheduler_.mutex());
  return muted_;
}

float VolumeModel::level() const {
  std::scoped_lock lock(scheduler_.mutex());
  return level_;
}

void VolumeModel::set_mute(bool muted, const Guid* context) {
  std::scoped_lock lock(scheduler_.mutex());
  muted_ = muted;
  tell(context);
}

void VolumeModel::set_level(float level, const Guid* context) {
  std::scoped_lock lock(scheduler_.mutex());
  level_ = level;
  tell(context);
}

void VolumeModel::tell(const Guid* context) {
  const AUDIO_VOLUME_NOTIFICATION_DATA data{context != nullptr ? *context : Guid{}, muted_, level_};
  callbacks_.notify([data](IAudioEndpointVolumeCallback& callback) { callback.OnNotify(&data); });
}

}  // namespace sonivo::sim
