#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "platform/machine.h"
#include "platform/sim/desktop.h"
#include "platform/sim/driver.h"
#include "platform/sim/endpoints.h"
#include "platform/sim/folders.h"
#include "platform/sim/fx.h"
#include "platform/sim/power.h"
#include "platform/sim/processes.h"
#include "platform/sim/scheduler.h"
#include "platform/sim/script.h"
#include "platform/sim/session.h"

namespace sonivo::sim {

// Endpoint ids of the notebook, in the order of the lists.
inline constexpr const char* kVirtualMic = "{0.0.1.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a01}";
inline constexpr const char* kMicArray = "{0.0.1.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a02}";
inline constexpr const char* kHeadsetMic = "{0.0.1.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a03}";
inline constexpr const char* kVirtualSpeaker = "{0.0.0.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a04}";
inline constexpr const char* kSpeakers = "{0.0.0.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a05}";
inline constexpr const char* kHeadphones = "{0.0.0.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a06}";

struct Config {
  Schedule schedule = Schedule::serial;
  std::uint32_t rate_hz = 48000;      ///< of all endpoints' engines
  std::uint32_t hardware_period = 0;  ///< of the physical endpoints, frames; 0: 10 ms
  PinConfig pins = {};                ///< of the virtual pair
  bool echo_filter = false;           ///< the maker's filter driver is there
  bool fx_user_store = true;
  std::filesystem::path folder = {};
};

/// What a program still holds of the machine; all zero once it has let go of everything.
struct Leaks {
  std::size_t device_handles = 0;
  std::size_t filter_handles = 0;
  std::size_t control_handles = 0;
  std::size_t action_notices = 0;
  std::size_t removal_notices = 0;
  std::size_t pending_requests = 0;
  std::size_t audio_clients = 0;
  std::size_t audio_services = 0;
  std::size_t volumes = 0;
  std::size_t property_stores = 0;
  std::size_t registered_callbacks = 0;
  std::size_t fx_objects = 0;
  std::size_t session_registrations = 0;
  std::size_t power_registrations = 0;
  std::size_t windows = 0;
  std::size_t timers = 0;
  std::size_t hooks = 0;
  std::size_t attached_inputs = 0;
  std::size_t bitmaps = 0;
  std::size_t painters = 0;
  std::size_t process_handles = 0;
  std::size_t events = 0;
  std::size_t threads = 0;

  friend bool operator==(const Leaks&, const Leaks&) = default;
};

/// A notebook with the virtual pair, a microphone array, a headset, speakers and headphones. The mic array and the
/// speakers are the defaults of all roles. The thread that constructs it is its first participant and destroys it.
class SimMachine {
 public:
  explicit SimMachine(const Config& config = {});
  /// The program's threads have ended or end by themselves.
  ~SimMachine();

  Machine seams();

  Scheduler& scheduler() { return scheduler_; }
  Script& script() { return script_; }
  SimDriver& driver() { return driver_; }
  SimEndpoints& endpoints() { return endpoints_; }
  EndpointModel& endpoint(const std::string& id) { return endpoints_.at(id); }
  SimFxProperties& fx() { return fx_; }
  SimSession& session() { return session_; }
  SimPower& power() { return power_; }
  SimDesktop& desktop() { return desktop_; }
  SimProcesses& processes() { return processes_; }

  /// Lets virtual time pass.
  void run_for(std::uint32_t ms) { scheduler_.pass(ms * kMillisecond); }
  /// Runs the action on the system thread, so many milliseconds from now.
  void after(std::uint32_t ms, std::function<void()> action);

  Leaks leaks();

 private:
  Script script_;
  Scheduler scheduler_;
  SimDesktop desktop_;
  SimSession session_;
  SimPower power_;
  SimProcesses processes_;
  SimFolders folders_;
  SimDriver driver_;
  SimEndpoints endpoints_;
  SimFxProperties fx_;
};

}  // namespace sonivo::sim
