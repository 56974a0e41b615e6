#pragma once

#include <atomic>
#include <cstdint>

#include "platform/endpoint_volume.h"

namespace sonivo {

class CAudioEndpointVolumeCallback;

inline constexpr Guid kIidAudioEndpointVolumeCallback{
    0x657804FA, 0xD6AD, 0x4496, {0x8A, 0x60, 0x35, 0x27, 0x52, 0xAF, 0x4F, 0x89}};

/// Context of this program's own volume writes: a notification that bears it is an echo.
inline constexpr Guid kOwnVolumeContext{0x80DCAD75, 0xD3FD, 0x407F, {0x84, 0x83, 0x3A, 0x03, 0x83, 0xF6, 0x35, 0x7D}};

/// Listens to several endpoints at once and tells them apart by the callback.
class IMultiAudioEndpointVolumeCallback {
 public:
  virtual void OnNotify(CAudioEndpointVolumeCallback* callback, const AUDIO_VOLUME_NOTIFICATION_DATA* data) = 0;

 protected:
  ~IMultiAudioEndpointVolumeCallback() = default;
};

/// Registration with one endpoint. Part of its owner, so the count keeps nothing alive.
class CAudioEndpointVolumeCallback final : public IAudioEndpointVolumeCallback {
 public:
  CAudioEndpointVolumeCallback(bool bVirtual, IMultiAudioEndpointVolumeCallback* owner)
      : m_bVirtual(bVirtual), m_pOwner(owner) {}

  Status QueryInterface(const Guid& iid, void** object) override;
  std::uint32_t AddRef() override { return ++m_refCount; }
  std::uint32_t Release() override { return --m_refCount; }
  /// kInvalidArgument without data, kFail without an owner.
  Status OnNotify(const AUDIO_VOLUME_NOTIFICATION_DATA* data) override;

  /// True for the virtual endpoint's callback, false for the physical one's.
  bool IsVirtual() const { return m_bVirtual; }

 private:
  std::atomic<std::uint32_t> m_refCount{1};
  const bool m_bVirtual;
  IMultiAudioEndpointVolumeCallback* const m_pOwner;
};

}  // namespace sonivo
