#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "host/host_state.h"

namespace sonivo {

/// Tells again and again that the host goes on: as long as SubThread makes its rounds, or has been told to leave until
/// a message starts it anew.
class HostHeartbeat {
 public:
  /// `beat` is called on a thread of the host's machine. The host outlives this object.
  HostHeartbeat(HostState& host, std::uint32_t period_ms, std::function<void()> beat);
  ~HostHeartbeat();
  HostHeartbeat(const HostHeartbeat&) = delete;
  HostHeartbeat& operator=(const HostHeartbeat&) = delete;

 private:
  void Run();

  HostState& host_;
  const std::uint32_t period_ms_;
  const std::function<void()> beat_;
  const std::unique_ptr<Event> quit_;
  const std::unique_ptr<Thread> thread_;
};

}  // namespace sonivo
