#include "platform/sim/desktop.h"

#include <utility>

namespace sonivo::sim {

void SimDesktop::post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) {
  script_.enter(Step::post_message);
  std::scoped_lock lock(scheduler_.mutex());
  messages_.push_back({scheduler_.now(), window, message, wParam});
}

std::vector<PostedMessage> SimDesktop::messages() const {
  std::scoped_lock lock(scheduler_.mutex());
  return messages_;
}

void SimDesktop::set_window_procedure(WindowProcedure procedure) {
  std::scoped_lock lock(scheduler_.mutex());
  procedure_ = std::move(procedure);
}

void SimDesktop::send_device_change(WindowHandle window, std::uint64_t wParam, const DeviceBroadcast& broadcast) {
  if (!procedure_) return;
  scheduler_.post_to_system(
      [procedure = procedure_, window, wParam, broadcast] { procedure(window, kWmDeviceChange, wParam, broadcast); });
}

}  // namespace sonivo::sim
