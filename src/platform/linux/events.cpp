#include "platform/linux/events.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

namespace sonivo::linux {
namespace {

using WaitClock = std::chrono::steady_clock;

constexpr std::size_t kMostEvents = 64;

/// What is left until the end, for ppoll; null without an end.
const timespec* time_left(const std::optional<WaitClock::time_point>& end, timespec& left) {
  if (!end) return nullptr;
  const auto ns = std::max<std::chrono::nanoseconds>(*end - WaitClock::now(), std::chrono::nanoseconds(0)).count();
  left = {.tv_sec = ns / 1'000'000'000, .tv_nsec = ns % 1'000'000'000};
  return &left;
}

}  // namespace

void DescriptorEvent::set() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(number(), &one, sizeof one);  // a full count is signalled too
}

bool DescriptorEvent::take() {
  std::uint64_t count = 0;
  return ::read(number(), &count, sizeof count) == sizeof count;
}

std::unique_ptr<Event> DescriptorEvents::create(Reset reset) {
  Descriptor descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!descriptor.is_open()) return nullptr;
  return std::make_unique<DescriptorEvent>(std::move(descriptor), reset);
}

WaitResult DescriptorEvents::wait_any(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms) {
  if (std::find(events.begin(), events.end(), nullptr) != events.end()) return {{}, error::kInvalidHandle};
  if (events.size() > kMostEvents) return {{}, error::kInvalidParameter};
  std::array<pollfd, kMostEvents> polled{};
  for (std::size_t i = 0; i < events.size(); ++i) {
    polled[i] = {static_cast<const DescriptorEvent*>(events[i])->number(), POLLIN, 0};
  }
  std::optional<WaitClock::time_point> end;
  if (limit_ms) end = WaitClock::now() + std::chrono::milliseconds(*limit_ms);
  for (;;) {
    timespec left{};
    const int count = ::ppoll(polled.data(), events.size(), time_left(end, left), nullptr);
    if (count < 0 && errno != EINTR) return {{}, error::kInvalidHandle};
    if (count == 0) return {};
    for (std::size_t i = 0; count > 0 && i < events.size(); ++i) {
      if ((polled[i].revents & POLLNVAL) != 0) return {{}, error::kInvalidHandle};
      if (polled[i].revents != 0 && static_cast<DescriptorEvent*>(events[i])->accept()) return {i, error::kNone};
    }
  }
}

}  // namespace sonivo::linux
