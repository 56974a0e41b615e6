// Keeps the mute of the virtual and the physical endpoint equal.

#include "base/trace.h"
#include "relay/endpoint_names.h"
#include "relay/stream_interface.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kVolumeSyncPauseMs = 10;

}  // namespace

std::shared_ptr<EndpointVolume> CStreamInterface::VirtualVolume() const {
  const std::lock_guard lock(m_csVirtualVolume);
  return m_pVirtualVolume;
}

void CStreamInterface::UnhookVirtualVolume() {
  if (const auto volume = VirtualVolume()) volume->unregister_callback(&m_volumeCallback);
}

Status CStreamInterface::HookVirtualVolume() {
  while (m_volumeSyncState.exchange(kSyncHooking) == kSyncApplying) m_machine.clock.sleep_ms(kVolumeSyncPauseMs);
  UnhookVirtualVolume();

  std::shared_ptr<EndpointVolume> volume;
  Status status = GetVirtualEndpointVolume(m_machine.endpoints, Flow(), volume);
  {
    const std::lock_guard lock(m_csVirtualVolume);
    m_pVirtualVolume = volume;
  }
  if (!volume) {
    trace(TraceLevel::error, "%s GetVirtualEndpointVolume failed.\n", Prefix());
    return status;
  }
  status = volume->register_callback(&m_volumeCallback);
  if (m_volumeSyncState.exchange(kSyncIdle) == kSyncApplying && m_bCapture) volume->set_mute(m_lastMute, nullptr);
  return status;
}

void CStreamInterface::OnNotify(CAudioEndpointVolumeCallback* callback, const AUDIO_VOLUME_NOTIFICATION_DATA* data) {
  const bool echo = data->guidEventContext == kOwnVolumeContext;
  if (callback->IsVirtual()) {
    if (m_bCapture && !echo) m_physical.SetMute(data->bMuted, &kOwnVolumeContext);
  } else {
    m_lastMute = data->bMuted;
    // While the stream is hooking the virtual endpoint the state stays at applying, and the hooking applies m_lastMute.
    if (m_volumeSyncState.exchange(kSyncApplying) != kSyncHooking) {
      const auto volume = VirtualVolume();
      if (volume && m_bCapture && !echo) volume->set_mute(data->bMuted, &kOwnVolumeContext);
      m_volumeSyncState = kSyncApplied;
    }
  }
  if (!m_bCapture) return;

  const WindowHandle window = m_hWnd;
  if (window != WindowHandle::none) {
    m_machine.desktop.post_message(window, WM_MIC_MUTE_STATE, data->bMuted ? 1 : 0);
  } else {
    trace(TraceLevel::error, "[cap] OnNotify FindWindow error!!\n");
  }
}

void CStreamInterface::InitMuteState() {
  const auto volume = VirtualVolume();
  if (!volume) return;
  if (!failed(m_physical.GetMute(m_savedMute))) {
    if (m_bCapture) volume->set_mute(m_savedMute, nullptr);
  } else {
    volume->mute(m_savedMute);
  }
  trace(TraceLevel::info, "%s saved mute state: %s\n", Prefix(), m_savedMute ? "TRUE" : "FALSE");
}

// Says only that a stream ends: what the user did to the mute while it ran is meant to stay.
void CStreamInterface::RestoreMuteState() {
  trace(TraceLevel::info, "%s RestoreMuteState() -- enter\n", Prefix());
  if (!VirtualVolume()) trace(TraceLevel::info, "%s invalid parameter\n", Prefix());
  trace(TraceLevel::info, "%s RestoreMuteState() -- leave\n", Prefix());
}

}  // namespace sonivo
