#include "relay/physical_device.h"

#include <vector>

#include "base/text.h"
#include "relay/endpoint_names.h"

namespace sonivo {
namespace {

constexpr Status kNoVolume = status_from_error(error::kInvalidState);

}  // namespace

CPhysicalDevice::CPhysicalDevice(Endpoints& endpoints, DataFlow dataFlow, IMultiAudioEndpointVolumeCallback* owner)
    : m_endpoints(endpoints), m_dataFlow(dataFlow), m_volumeCallback(false, owner) {}

CPhysicalDevice::~CPhysicalDevice() {
  if (m_pVolume) m_pVolume->unregister_callback(&m_volumeCallback);
}

Status CPhysicalDevice::SetEndpoint(const std::string& id) {
  const std::lock_guard lock(m_cs);
  m_id = id;
  if (m_state.exchange(kChangePending) != kClosed) return kOk;
  m_state = kClosed;
  return changeMMDevice();
}

void CPhysicalDevice::MarkOpen() {
  const std::lock_guard lock(m_cs);
  if (!m_pDevice) changeMMDevice();
  m_state = kOpen;
}

void CPhysicalDevice::ClearState() {
  const std::lock_guard lock(m_cs);
  if (m_state.exchange(kClosed) == kChangePending) changeMMDevice();
}

Status CPhysicalDevice::changeMMDevice() {
  if (m_pVolume) m_pVolume->unregister_callback(&m_volumeCallback);
  m_pVolume.reset();
  m_pDevice.reset();
  if (m_id.empty()) return kOk;
  if (const Status status = FindDevice(); failed(status)) return status;

  if (const Status status = m_pDevice->activate_volume(m_pVolume); failed(status)) return status;

  // The new device's mute reaches the virtual endpoint as if it had just changed.
  AUDIO_VOLUME_NOTIFICATION_DATA data;
  m_pVolume->mute(data.bMuted);
  m_pVolume->level_scalar(data.fMasterVolume);
  m_volumeCallback.OnNotify(&data);

  return m_pVolume->register_callback(&m_volumeCallback);
}

Status CPhysicalDevice::FindDevice() {
  std::vector<std::shared_ptr<Endpoint>> endpoints;
  if (const Status status = m_endpoints.list(m_dataFlow, kDeviceActive, endpoints); failed(status)) return status;
  for (const auto& endpoint : endpoints) {
    if (IsVirtualEndpoint(*endpoint)) continue;
    std::string id;
    if (failed(endpoint->id(id)) || !equals_ignoring_case(id, m_id)) continue;
    m_pDevice = endpoint;
    return kOk;
  }
  return kFail;
}

std::shared_ptr<Endpoint> CPhysicalDevice::GetDevice() const {
  const std::lock_guard lock(m_cs);
  return m_pDevice;
}

std::shared_ptr<EndpointVolume> CPhysicalDevice::Volume() const {
  const std::lock_guard lock(m_cs);
  return m_pVolume;
}

Status CPhysicalDevice::GetMute(bool& muted) const {
  const auto volume = Volume();
  return volume ? volume->mute(muted) : kNoVolume;
}

Status CPhysicalDevice::SetMute(bool muted, const Guid* context) {
  const auto volume = Volume();
  return volume ? volume->set_mute(muted, context) : kNoVolume;
}

Status CPhysicalDevice::GetVolumeLevel(float& level) const {
  const auto volume = Volume();
  return volume ? volume->level_scalar(level) : kNoVolume;
}

Status CPhysicalDevice::SetVolumeLevel(float level, const Guid* context) {
  const auto volume = Volume();
  return volume ? volume->set_level_scalar(level, context) : kNoVolume;
}

}  // namespace sonivo
