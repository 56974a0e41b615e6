#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/control_store.h"
#include "platform/device.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

inline constexpr const char* kControlPath = R"(\\?\root#system#0001#{6d0939e3-4ce7-43b7-934e-581f2b942ff4})";

/// One request as it reached the driver.
struct ControlRecord {
  Time time = 0;
  std::uint64_t thread = 0;  ///< number of the participant that made it
  std::uint32_t code = 0;
  Completion handle = Completion::overlapped;
  bool with_overlapped = false;               ///< made by Device::control
  std::optional<Reset> event = std::nullopt;  ///< kind of the event that came along
  std::vector<std::byte> input;
  std::size_t output_bytes = 0;
};

/// The control device of a driver that does what a test says.
class ControlDevice {
 public:
  ControlDevice(Scheduler& scheduler, Script& script);
  ~ControlDevice();

  // For the bus
  std::vector<DeviceInterface> interfaces() const;
  std::shared_ptr<Device> open(Completion completion, Error& why);
  /// Null for a handle to anything else.
  std::unique_ptr<Registration> notify_actions(const Device& device, DeviceActionCallback callback);

  // What the driver holds; settings that no request can set are set here too
  std::uint32_t number(std::uint32_t get_code) const;
  void set_number(std::uint32_t get_code, std::uint32_t value);
  std::u16string text(std::uint32_t get_code) const;
  void set_text(std::uint32_t get_code, std::u16string_view value);

  // What happens
  /// Every request with this code fails, until pardon().
  void fail(std::uint32_t code, Error error);
  void pardon(std::uint32_t code);
  /// Every request with this code is answered with these bytes, as far as there is room for them.
  void answer_raw(std::uint32_t code, std::vector<std::byte> bytes);
  /// Requests with this code are answered after so long, all but those for an event.
  void set_delay(std::uint32_t code, std::uint32_t ms);
  /// Runs the action on the calling thread right before the next request with this code reaches the driver, with no
  /// lock of the machine held.
  void before(std::uint32_t code, std::function<void()> action);
  /// Completes the oldest pending event request, or waits for the next one.
  void send_event(std::uint32_t command);
  /// Tells all who asked, one after another on the system thread.
  void tell(DeviceAction action);
  /// An absent device isn't found; what is open of it fails with error::kDeviceNotConnected.
  void set_present(bool present);

  // Observations
  std::vector<ControlRecord> requests() const;
  void forget_requests();
  /// Codes of the requests since the latest forget_requests(), without those of events and reports.
  std::vector<std::uint32_t> codes() const;
  /// The latest that was published.
  std::string report() const;
  std::size_t opened_handles() const;
  std::size_t open_handles() const;
  std::size_t action_notices() const;
  std::size_t pending_requests() const;
  /// Registrations that were ended inside their own callback.
  std::size_t notices_ended_inside() const;

 private:
  class Handle;
  class Notice;
  struct Pending {
    const Handle* handle = nullptr;
    Overlapped* overlapped = nullptr;
    std::span<std::byte> output;  ///< of an event
    TimerId timer = 0;
  };
  Error start(const Handle& handle, std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
              Overlapped& request);
  std::function<void()> take_action(std::uint32_t code);
  control::Answer answer(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output);
  Error start_event(const Handle& handle, std::span<std::byte> output, Overlapped& request);
  void finish_later(const Handle& handle, Overlapped& request, const control::Answer& answer, std::uint32_t ms);
  void finish(Overlapped& request, Error error, std::uint32_t transferred);
  void abort_pending(const Handle* handle, const Overlapped* request, Error error);
  void cancel_events();
  void deliver_events();
  void call_all(DeviceAction action, std::uint64_t latest);

  Scheduler& scheduler_;
  Script& script_;
  control::Store store_;
  std::string report_;
  bool present_ = true;
  std::map<std::uint32_t, Error> failures_;
  std::map<std::uint32_t, std::vector<std::byte>> raw_answers_;
  std::map<std::uint32_t, std::uint32_t> delays_ms_;
  std::map<std::uint32_t, std::function<void()>> actions_;
  std::deque<std::uint32_t> events_;
  std::vector<Pending> waiting_for_event_;
  std::vector<Pending> delayed_;
  std::vector<Handle*> handles_;
  std::size_t opened_handles_ = 0;
  std::vector<ControlRecord> requests_;
  std::vector<Notice*> notices_;
  std::uint64_t latest_notice_ = 0;
  const Notice* in_call_ = nullptr;
  std::size_t notices_ended_inside_ = 0;
  SimEvent request_done_;
  SimEvent call_ended_;
};

}  // namespace sonivo::sim
