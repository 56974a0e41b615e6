#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/endpoints.h"
#include "relay/volume_callback.h"

namespace sonivo {

/// The physical endpoint of one direction. A change that comes while the stream has it open waits until the stream has
/// closed it.
class CPhysicalDevice {
 public:
  CPhysicalDevice(Endpoints& endpoints, DataFlow dataFlow, IMultiAudioEndpointVolumeCallback* owner);
  virtual ~CPhysicalDevice();
  CPhysicalDevice(const CPhysicalDevice&) = delete;
  CPhysicalDevice& operator=(const CPhysicalDevice&) = delete;

  /// Wants the endpoint with this id, or none when it is empty. Answers the status of the change, or kOk when it waits.
  Status SetEndpoint(const std::string& id);
  /// Looks again for an endpoint that wasn't there when it was wanted.
  void MarkOpen();
  /// Marks the device closed and applies a waiting change.
  void ClearState();
  bool IsChangePending() const { return m_state == kChangePending; }

  /// Null when there is no such endpoint.
  std::shared_ptr<Endpoint> GetDevice() const;

  // Without a device these fail with error::kInvalidState.
  Status GetMute(bool& muted) const;
  Status SetMute(bool muted, const Guid* context);
  Status GetVolumeLevel(float& level) const;
  Status SetVolumeLevel(float level, const Guid* context);

 private:
  enum State : std::uint32_t { kClosed = 0, kOpen = 1, kChangePending = 2 };

  Status changeMMDevice();
  Status FindDevice();
  std::shared_ptr<EndpointVolume> Volume() const;

  Endpoints& m_endpoints;
  std::shared_ptr<Endpoint> m_pDevice;
  std::atomic<std::uint32_t> m_state{kClosed};
  mutable std::mutex m_cs;
  const DataFlow m_dataFlow;
  std::string m_id;
  std::shared_ptr<EndpointVolume> m_pVolume;
  CAudioEndpointVolumeCallback m_volumeCallback;
};

}  // namespace sonivo
