#pragma once

#include <cstdint>

#include "platform/sim/timeline.h"

namespace sonivo::sim {

/// Maps frames of a stream to virtual time: rate * (1 + drift_ppm * 1e-6) * (1 + trim * trim_ppm * 1e-6) frames a
/// second. Positions are anchored at the latest change of the ratio, so that rounding to nanoseconds never adds up.
class StreamClock {
 public:
  StreamClock() = default;
  StreamClock(Time start, std::uint32_t rate_hz, double drift_ppm, double trim_ppm, std::int32_t trim);

  /// From `now` on the clock runs faster (1), slower (-1) or as it is (0).
  void set_trim(Time now, std::int32_t trim);
  /// When the stream reaches this frame, rounded to nearest.
  Time time_of(double frame) const;
  double position(Time time) const;

 private:
  double frames_per_second() const;

  Time anchor_time_ = 0;
  double anchor_frame_ = 0;
  double drifted_rate_ = 1;
  double trim_ppm_ = 0;
  std::int32_t trim_ = 0;
};

}  // namespace sonivo::sim
