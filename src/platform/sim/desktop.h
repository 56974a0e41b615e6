#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/desktop.h"
#include "platform/device.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

struct PostedMessage {
  Time time = 0;
  WindowHandle window = WindowHandle::none;
  std::uint32_t message = 0;
  std::uint64_t wParam = 0;
};

inline constexpr std::uint32_t kWmDeviceChange = 0x0219;

/// Answers a message that carries a device record.
using WindowProcedure = std::function<void(WindowHandle window, std::uint32_t message, std::uint64_t wParam,
                                           const DeviceBroadcast& broadcast)>;

/// A desktop that keeps what is posted to it.
class SimDesktop final : public Desktop {
 public:
  SimDesktop(Scheduler& scheduler, Script& script) : scheduler_(scheduler), script_(script) {}

  void post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) override;

  /// Everything posted so far.
  std::vector<PostedMessage> messages() const;
  /// Who is called, on the system thread, with device records.
  void set_window_procedure(WindowProcedure procedure);

  /// For the models, with the scheduler's mutex held.
  void send_device_change(WindowHandle window, std::uint64_t wParam, const DeviceBroadcast& broadcast);

 private:
  Scheduler& scheduler_;
  Script& script_;
  std::vector<PostedMessage> messages_;
  WindowProcedure procedure_;
};

}  // namespace sonivo::sim
