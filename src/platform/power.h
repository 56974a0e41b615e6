#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "base/guid.h"
#include "platform/message.h"
#include "platform/registration.h"

namespace sonivo {

// Power transitions, wParam of kWmPowerBroadcast.
inline constexpr std::uint64_t kPowerSuspend = 4;
inline constexpr std::uint64_t kPowerResumeAutomatic = 18;
inline constexpr std::uint64_t kPowerSettingChange = 0x8013;

/// The setting that tells the state of the console's display.
inline constexpr Guid kConsoleDisplayState{
    0x6FE69556, 0x704A, 0x47A0, {0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}};
inline constexpr std::uint32_t kDisplayOff = 0;
inline constexpr std::uint32_t kDisplayOn = 1;
inline constexpr std::uint32_t kDisplayDimmed = 2;

/// What a message about a changed setting carries.
struct PowerSetting {
  Guid setting;
  std::uint32_t data_length = 0;  ///< bytes
  std::uint32_t data = 0;         ///< little endian
};

/// Called with kPowerSuspend or kPowerResumeAutomatic on a thread of the machine's own; the answer is ignored.
using PowerCallback = std::function<std::uint32_t(std::uint64_t transition)>;

struct PowerCapabilities {
  bool AoAc = false;  ///< connected standby
};

/// Power of the machine. Any thread. Every window of the program is sent kWmPowerBroadcast with kPowerSuspend and
/// kPowerResumeAutomatic, without asking for it.
class Power {
 public:
  virtual ~Power() = default;
  /// Null when refused. Once the registration is destroyed the callback isn't called any more, and no call is under way
  /// unless made by the destroying thread.
  virtual std::unique_ptr<Registration> register_suspend_resume(PowerCallback callback) = 0;
  /// Sends kWmPowerBroadcast with kPowerSettingChange and a PowerSetting to the window: the present value now, and each
  /// later one. Null when refused.
  virtual std::unique_ptr<Registration> register_setting(WindowHandle window, const Guid& setting) = 0;
  virtual bool capabilities(PowerCapabilities& capabilities) = 0;
  /// Puts off the next switching-off of the display, once; doesn't switch it on.
  virtual bool require_display() = 0;
};

}  // namespace sonivo
