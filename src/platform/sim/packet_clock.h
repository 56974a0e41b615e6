#pragma once

#include <cstdint>

#include "platform/sim/timeline.h"

namespace sonivo::sim {

/// When a shared-mode engine hands which frames to a client. The engine works in periods of `period` frames; a period
/// longer than 10 ms is cut into ceil(period / 10 ms) nearly equal packets, evenly spread over one period.
class PacketClock {
 public:
  PacketClock() = default;
  PacketClock(std::uint32_t rate_hz, std::uint32_t period);

  /// Frames of packet j = 0, 1, ... after the start.
  std::uint32_t frames(std::uint64_t j) const;
  /// Largest packet.
  std::uint32_t max_frames() const { return (period_ + pieces_ - 1) / pieces_; }
  /// Recording: packet j is there, its period's first one a full period after that began.
  Time arrival(std::uint64_t j) const { return offset(j + pieces_); }
  /// Playing: packet j has been played.
  Time played(std::uint64_t j) const { return offset(j + 1); }

 private:
  /// Length of the first n packets of a long period's even spread, from the start.
  Time offset(std::uint64_t n) const;

  std::uint32_t rate_hz_ = 48000;
  std::uint32_t period_ = 480;
  std::uint32_t pieces_ = 1;
};

}  // namespace sonivo::sim
