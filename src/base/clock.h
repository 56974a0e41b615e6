#pragma once

#include <cstdint>

namespace sonivo {

class Clock {
 public:
  virtual ~Clock() = default;
  /// Milliseconds since an arbitrary start, never going back.
  virtual std::uint64_t tick_ms() = 0;
  virtual void sleep_ms(std::uint32_t duration_ms) = 0;
};

}  // namespace sonivo
