#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "platform/device.h"
#include "platform/fx_properties.h"
#include "platform/fx_requests.h"

namespace sonivo::linux {

/// One connection to the driver behind the bus's control interface; null with the reason.
std::shared_ptr<Device> open_control(DeviceBus& bus, Completion completion, Error& why);

/// A watch that outlives its drivers: the properties do, too. Another driver counts as a change once the service has
/// told it of itself, by when those who are woken can ask it for what may have changed.
class ControlWatch final : public FxWatch {
 public:
  /// `endpoint`: its GUID in text.
  ControlWatch(DeviceBus& bus, const std::string& endpoint);
  ~ControlWatch() override;
  ControlWatch(const ControlWatch&) = delete;
  ControlWatch& operator=(const ControlWatch&) = delete;

  /// First of all, and once. error::kNotFound: the driver holds no values of such an endpoint.
  Error open();
  Status arm(Event* event) override;

 private:
  using Time = std::chrono::steady_clock::time_point;

  /// Of the request; set by the driver's reader.
  class Answered final : public Event {
   public:
    explicit Answered(ControlWatch& watch) : watch_(watch) {}
    void set() override { watch_.answered(); }
    void reset() override {}

   private:
    ControlWatch& watch_;
  };

  void answered();
  void tell();
  void run();
  Error connect();
  bool is_back();

  DeviceBus& bus_;

  std::mutex device_mutex_;  ///< taken before the other one
  std::shared_ptr<Device> device_;
  control::FxWatchQuestion question_;
  std::uint64_t change_ = 0;  ///< number of the latest that is known of
  Answered answered_{*this};
  Overlapped request_{.hEvent = &answered_};

  std::mutex mutex_;
  std::condition_variable changed_;
  Event* target_ = nullptr;  ///< of who armed the watch, until it is told
  bool untold_ = false;      ///< a change came when it wasn't armed
  bool lost_ = false;
  bool ends_ = false;

  std::optional<Time> connected_;  ///< with another driver; of the thread
  std::thread thread_;
};

}  // namespace sonivo::linux
