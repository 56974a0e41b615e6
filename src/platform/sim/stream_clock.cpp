#include "platform/sim/stream_clock.h"

#include <cmath>

namespace sonivo::sim {
namespace {
constexpr double kPpm = 1e-6;
}

StreamClock::StreamClock(Time start, std::uint32_t rate_hz, double drift_ppm, double trim_ppm, std::int32_t trim)
    : anchor_time_(start), drifted_rate_(rate_hz * (1 + drift_ppm * kPpm)), trim_ppm_(trim_ppm), trim_(trim) {}

double StreamClock::frames_per_second() const { return drifted_rate_ * (1 + trim_ * trim_ppm_ * kPpm); }

void StreamClock::set_trim(Time now, std::int32_t trim) {
  anchor_frame_ = position(now);
  anchor_time_ = now;
  trim_ = trim;
}

Time StreamClock::time_of(double frame) const {
  return anchor_time_ + std::llround((frame - anchor_frame_) / frames_per_second() * kSecond);
}

double StreamClock::position(Time time) const {
  return anchor_frame_ + static_cast<double>(time - anchor_time_) / kSecond * frames_per_second();
}

}  // namespace sonivo::sim
