#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "base/event.h"
#include "base/thread.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/events.h"

namespace sonivo {

/// Tells the driver whether headphones are plugged in, which it forgets when it ends: each driver anew.
class HeadphoneReport {
 public:
  /// Throws std::runtime_error when the machine has no thread or event left.
  HeadphoneReport(Threads& threads, const std::string& driver_socket);
  ~HeadphoneReport();
  HeadphoneReport(const HeadphoneReport&) = delete;
  HeadphoneReport& operator=(const HeadphoneReport&) = delete;

  /// Any thread; waits for nothing. Before the first call the driver is told nothing.
  void tell(bool plugged);

 private:
  enum class State { unknown, unplugged, plugged };

  void run();
  void serve(Device& driver);

  linux::DescriptorEvents events_;
  const std::unique_ptr<Event> quit_ = events_.create(Reset::manual);
  const std::unique_ptr<Event> woken_ = events_.create(Reset::automatic);  ///< something is new
  const std::string socket_;
  linux::ControlBus bus_;
  std::atomic<State> state_ = State::unknown;
  std::unique_ptr<Thread> thread_;
};

}  // namespace sonivo
