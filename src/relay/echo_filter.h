#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/device.h"

namespace sonivo {

/// The optional filter driver of the notebook's maker, which wants to know whether the microphone is muted. Any thread.
class EchoFilter {
 public:
  explicit EchoFilter(DeviceBus& bus) : m_bus(bus) {}

  /// True when the filter took the value; false when there is none or it refused. The handle of a refused call stays
  /// open until the next call.
  bool NotifyEchoFilter(std::uint32_t value);

 private:
  DeviceBus& m_bus;
  std::mutex m_cs;
  std::shared_ptr<Device> m_refused;
};

}  // namespace sonivo
