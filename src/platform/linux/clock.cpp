#include "platform/linux/clock.h"

#include <cerrno>
#include <ctime>

namespace sonivo::linux {
namespace {

constexpr long kMillisecondNs = 1'000'000;
constexpr long kSecondNs = 1'000'000'000;

timespec monotonic_now() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

}  // namespace

std::uint64_t MonotonicClock::tick_ms() {
  const timespec now = monotonic_now();
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec / kMillisecondNs);
}

void MonotonicClock::sleep_ms(std::uint32_t duration_ms) {
  timespec end = monotonic_now();
  end.tv_sec += duration_ms / 1000;
  end.tv_nsec += static_cast<long>(duration_ms % 1000) * kMillisecondNs;
  if (end.tv_nsec >= kSecondNs) {
    ++end.tv_sec;
    end.tv_nsec -= kSecondNs;
  }
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

}  // namespace sonivo::linux
