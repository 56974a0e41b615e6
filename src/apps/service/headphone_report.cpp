#include "apps/service/headphone_report.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>

#include "platform/control_requests.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kRetryMs = 500;

}  // namespace

HeadphoneReport::HeadphoneReport(Threads& threads, const std::string& driver_socket)
    : socket_(driver_socket), bus_(driver_socket) {
  if (!quit_ || !woken_) throw std::runtime_error("there are no file descriptors left");
  thread_ = threads.start("headphones", [this] { run(); });
  if (!thread_) throw std::runtime_error("no thread can be started");
}

HeadphoneReport::~HeadphoneReport() {
  quit_->set();
  thread_->join();
}

void HeadphoneReport::tell(bool plugged) {
  state_ = plugged ? State::plugged : State::unplugged;
  woken_->set();
}

void HeadphoneReport::run() {
  const std::array<Event*, 1> quit{quit_.get()};
  do {
    Error why = error::kNone;
    if (const auto driver = bus_.open(socket_, Sharing::shared, Completion::overlapped, why)) serve(*driver);
  } while (!events_.wait_any(quit, kRetryMs).index);
}

/// Until this driver goes, or the object does.
void HeadphoneReport::serve(Device& driver) {
  std::atomic<bool> gone = false;
  const auto notice = bus_.notify_actions(driver, [&](DeviceAction) {
    gone = true;
    woken_->set();
    return 0u;
  });
  if (!notice) return;
  const std::array<Event*, 2> awaited{quit_.get(), woken_.get()};
  State told = State::unknown;
  while (!gone) {
    const State state = state_;
    if (state != told) {
      const std::uint32_t plugged = state == State::plugged ? 1 : 0;
      std::uint32_t transferred = 0;
      const auto input = std::as_bytes(std::span(&plugged, 1));
      if (driver.control_now(control::SetHeadphone, input, {}, transferred) != error::kNone) return;
      told = state;
    }
    if (events_.wait_any(awaited, std::nullopt).index != 1) return;
  }
}

}  // namespace sonivo
