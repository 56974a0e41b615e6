#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/host_state.h"
#include "platform/sim/machine.h"
#include "support/scripted_chains.h"
#include "support/temporary_folder.h"
#include "support/trace_log.h"

namespace sonivo::test {

/// What the driver of a notebook says of it.
struct Model {
  std::uint32_t generation = 8;
  std::uint32_t function = 0;
  std::uint32_t generation_mic = 0;
  std::uint32_t function_mic = 0;
};
inline constexpr Model kPlain{};
inline constexpr Model kKeyCancel{8, 0, 2, 1};
inline constexpr Model kBeamForming{8, 2, 3, 2};
inline constexpr Model kAISpeech{10, 2, 5, 8};

/// The service on a simulated notebook, on a thread of its own.
class HostBench {
 public:
  explicit HostBench(const Model& model = kPlain, sim::Schedule schedule = sim::Schedule::serial);
  /// Ends the session where that hasn't happened.
  ~HostBench();

  /// Starts the service and lets it settle for `ms`.
  void start(std::uint32_t ms = 100);
  void end_session();
  bool running() const { return exit_code == kRunning; }

  /// Parameters for each chain with the microphone array; without them none opens.
  void store_parameters();
  /// A bitmap that has its header alone.
  void store_bitmap(std::uint32_t id, std::uint8_t width, std::uint8_t height);

  sim::ControlDevice& driver() { return machine.driver().control(); }
  void run_for(std::uint32_t ms) { machine.run_for(ms); }
  /// Somebody outside posts a message to the panel.
  void post(std::uint32_t message, std::uint64_t wParam = 0);
  /// A message that no case of the window procedure knows.
  void post_any() { post(0x0400); }
  /// Steps of the machine so far, from the trace, without their times.
  std::vector<std::string> steps();
  /// Whether a thread other than the calling one could have the driver's lock now.
  bool driver_lock_is_free();
  /// Names of the host's threads that run.
  std::vector<std::string> threads();

  static constexpr int kRunning = -1;
  std::atomic<int> exit_code = kRunning;
  TraceLog log;
  TemporaryFolder folder;
  sim::SimMachine machine;
  ScriptedChains chains;
  std::shared_ptr<HostState> host;

 private:
  std::unique_ptr<Thread> service_;
};

}  // namespace sonivo::test
