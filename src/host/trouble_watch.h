#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/host_state.h"

namespace sonivo {

/// A condition that counts once it has held for some time, because it also occurs for a moment when all is well.
class Standing {
 public:
  explicit Standing(std::uint32_t limit_ms) : limit_ms_(limit_ms) {}
  /// Whether the condition has held at each call for the limit.
  bool Since(bool holds, std::uint64_t now_ms);

 private:
  std::uint32_t limit_ms_;
  std::optional<std::uint64_t> since_ms_;
};

/// Tells what is wrong with the service at present, and notes in the host's m_LastTrouble what is new. One thread.
class TroubleWatch {
 public:
  explicit TroubleWatch(HostState& host) : host_(host) {}
  /// To be called several times a second; empty when all is well.
  const std::string& Look();
  /// What keeps the service from its driver, as of the latest Look(); empty: nothing.
  const std::string& DriverTrouble() const { return driver_trouble_; }

 private:
  struct Direction {
    const char* device;
    Standing absent;
    Standing opening;
    Standing silent;
    bool is_silent = false;
    StreamStatistics statistics = {};
  };
  std::string Present(std::uint64_t now_ms);
  std::string LookAtDriver(std::uint64_t now_ms);
  std::string VirtualTrouble(Direction& direction, const CStreamInterface& stream, std::uint64_t now_ms);
  std::string PhysicalTrouble(Direction& direction, const CStreamInterface& stream, std::uint64_t now_ms);
  void LookAtStream(Direction& direction, const CStreamInterface& stream, std::uint64_t now_ms);

  static constexpr std::uint32_t kMomentMs = 1000;
  static constexpr std::uint32_t kSilentMs = 2000;     // a device that has slept may need one to begin
  static constexpr std::uint32_t kReconnectMs = 5000;  // a resume takes two seconds to connect again

  HostState& host_;
  Standing not_ready_{kReconnectMs};
  Direction capture_{"microphone", Standing(kMomentMs), Standing(kMomentMs), Standing(kSilentMs)};
  Direction render_{"speaker", Standing(kMomentMs), Standing(kMomentMs), Standing(kSilentMs)};
  std::string present_;
  std::string driver_trouble_;
};

}  // namespace sonivo
