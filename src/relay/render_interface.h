#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "relay/stream_interface.h"

namespace sonivo {

/// The speaker direction: virtual speaker, stream ring, physical speaker, with a gain ramp that hides the start.
class CRenderInterface final : public CStreamInterface {
 public:
  explicit CRenderInterface(const Machine& machine) : CStreamInterface(machine, DataFlow::render) {}
  ~CRenderInterface() override { Detach(); }

 private:
  float PhysicalLevel() const override { return 1.0f; }
  Status PhysicalEndpointOpen() override;
  void PhysicalEndpointClose() override;
  std::int32_t Step() override;

  // Render step, by what woke it.
  std::int32_t VirtualTransferDone();
  std::int32_t PhysicalRoomReady();
  /// Fills a packet from the ring as the gain stands; 0 when the ring ran dry. Adds the packet's flags.
  std::int32_t FillPacket(std::byte* data, std::uint32_t frames, std::uint32_t& flags);
  void ReadRamped(std::byte* data, std::uint32_t frames);

  std::unique_ptr<AudioRenderClient> m_pRenderClient;
  bool m_bPlaying = false;  // the ring has filled and audio flows
  float m_targetGain = 0.0f;
  float m_currentGain = 0.0f;
  std::vector<float> m_ramped;
};

}  // namespace sonivo
