#pragma once

#include "base/clock.h"

namespace sonivo::linux {

/// The monotonic clock; it stands while the machine sleeps.
class MonotonicClock final : public Clock {
 public:
  std::uint64_t tick_ms() override;
  void sleep_ms(std::uint32_t duration_ms) override;
};

}  // namespace sonivo::linux
