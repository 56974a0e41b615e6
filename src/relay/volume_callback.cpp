#include "relay/volume_callback.h"

namespace sonivo {

Status CAudioEndpointVolumeCallback::QueryInterface(const Guid& iid, void** object) {
  if (iid == kIidUnknown || iid == kIidAudioEndpointVolumeCallback) {
    AddRef();
    *object = static_cast<IAudioEndpointVolumeCallback*>(this);
    return kOk;
  }
  *object = nullptr;
  return kNoInterface;
}

Status CAudioEndpointVolumeCallback::OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) {
  if (data == nullptr) return kInvalidArgument;
  if (m_pOwner == nullptr) return kFail;
  m_pOwner->OnNotify(this, data);
  return kOk;
}

}  // namespace sonivo
