#include "platform/sim/packet_clock.h"

namespace sonivo::sim {

PacketClock::PacketClock(std::uint32_t rate_hz, std::uint32_t period) : rate_hz_(rate_hz), period_(period) {
  const std::uint32_t client_period = rate_hz / 100;
  pieces_ = (period + client_period - 1) / client_period;
}

std::uint32_t PacketClock::frames(std::uint64_t j) const {
  const auto i = static_cast<std::uint32_t>(j % pieces_);
  return (i + 1) * period_ / pieces_ - i * period_ / pieces_;
}

// n * period / (pieces * rate) seconds, rounded once.
Time PacketClock::offset(std::uint64_t n) const {
  const std::uint64_t numerator = n * period_;
  const std::uint64_t denominator = std::uint64_t{pieces_} * rate_hz_;
  const std::uint64_t seconds = numerator / denominator;
  const std::uint64_t rest = numerator % denominator;
  return static_cast<Time>(seconds * kSecond + (rest * kSecond + denominator / 2) / denominator);
}

}  // namespace sonivo::sim
