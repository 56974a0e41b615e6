#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/device.h"
#include "platform/sim/control_device.h"
#include "platform/sim/desktop.h"
#include "platform/sim/echo_filter.h"
#include "platform/sim/pin.h"
#include "platform/sim/scheduler.h"
#include "platform/sim/signal.h"
#include "platform/wave_format.h"

namespace sonivo::sim {

inline constexpr Guid kCategoryAudio{0x6994AD04, 0x93EF, 0x11D0, {0xA3, 0xCC, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
inline constexpr const char* kDriverService = "NorvellRelay";

/// Handles to the two pins since the start.
struct HandleCounts {
  std::size_t opened = 0;
  std::size_t closed = 0;
  std::size_t open() const { return opened - closed; }
};

/// Driver of the virtual endpoint pair with its control device, the applications that use the pair, and the bus it is
/// found on.
class SimDriver final : public DeviceBus {
 public:
  SimDriver(Scheduler& scheduler, Script& script, SimDesktop& desktop, const PinConfig& config, bool echo_filter);
  ~SimDriver() override;

  // DeviceBus
  std::vector<DeviceInterface> interfaces(const Guid& category) override;
  /// Handles to a pin are overlapped ones, whatever is asked for.
  std::shared_ptr<Device> open(const std::string& path, Sharing sharing, Completion completion, Error& why) override;
  std::unique_ptr<RemovalNotice> notify_removal(const DeviceBroadcast& broadcast, WindowHandle window) override;
  std::unique_ptr<Registration> notify_actions(const Device& device, DeviceActionCallback callback) override;

  // Applications
  /// An application records from the virtual microphone, from this instant on, into recording() or the sink.
  void open_recorder(const WAVEFORMATEXTENSIBLE& format, Sink sink = {});
  /// An application plays to the virtual speaker.
  void open_player(const WAVEFORMATEXTENSIBLE& format, Source source);
  /// The application goes: outstanding transfers fail with error::kDeviceNotConnected.
  void close_client(PinId pin);
  /// What the latest recorder heard, from its first sample on.
  std::vector<std::byte> recording() const;

  // Hardware
  /// Tells the windows that asked that the pin's device is about to go.
  void query_remove(PinId pin);
  /// The device is gone, together with the application's stream, until return_device().
  void surprise_remove(PinId pin);
  void return_device(PinId pin);
  /// The bus from now on, in order, without those of an absent pin.
  void set_interfaces(std::vector<DeviceInterface> interfaces);
  EchoFilter& echo_filter() { return echo_filter_; }
  ControlDevice& control() { return control_; }

  // Observations
  PinStats stats(PinId pin) const;
  /// Values sent by feedback requests, with their times.
  std::vector<FeedbackRecord> feedback(PinId pin) const;
  HandleCounts handles() const;
  std::size_t removal_notices() const;
  std::size_t pending_requests() const;
  /// The path to open for a pin.
  static std::string device_path(PinId pin);

 private:
  class Handle;
  class Notice;
  PinModel& pin(PinId id) { return id == PinId::mic ? mic_ : speaker_; }
  const PinModel& pin(PinId id) const { return id == PinId::mic ? mic_ : speaker_; }
  std::shared_ptr<Device> open_pin(PinModel& pin, Sharing sharing, Error& why);

  Scheduler& scheduler_;
  Script& script_;
  SimDesktop& desktop_;
  EchoFilter echo_filter_;
  ControlDevice control_;
  PinModel mic_;
  PinModel speaker_;
  std::vector<DeviceInterface> interfaces_;
  std::vector<Handle*> handles_;
  HandleCounts handle_counts_;
  std::vector<Notice*> notices_;
};

}  // namespace sonivo::sim
