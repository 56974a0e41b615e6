#pragma once

#include <cstdint>

#include "base/clock.h"

namespace sonivo::test {

/// A clock that moves only by hand.
class ManualClock final : public Clock {
 public:
  std::uint64_t tick_ms() override { return now_ms; }
  void sleep_ms(std::uint32_t duration_ms) override { now_ms += duration_ms; }

  std::uint64_t now_ms = 5000;
};

}  // namespace sonivo::test
