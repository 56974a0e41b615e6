#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/processes.h"
#include "platform/sim/scheduler.h"
#include "platform/sim/script.h"
#include "platform/sim/session.h"

namespace sonivo::sim {

struct StartedProcess {
  Time time = 0;
  std::uint32_t id = 0;
  ProcessStart what;
};

struct TerminatedProcess {
  Time time = 0;
  std::uint32_t id = 0;
  std::uint32_t exit_code = 0;

  friend bool operator==(const TerminatedProcess&, const TerminatedProcess&) = default;
};

/// A table of processes, in the order in which they came. What the program starts runs for 100 ms unless set otherwise.
class SimProcesses final : public Processes {
 public:
  SimProcesses(Scheduler& scheduler, Script& script, const SimSession& session);
  ~SimProcesses() override;

  // Processes
  Error list(std::vector<ProcessInfo>& processes) override;
  std::unique_ptr<Process> open(std::uint32_t id, Error& why) override;
  std::unique_ptr<Process> start(const ProcessStart& what, Error& why) override;

  // What happens
  void add(const ProcessInfo& process);
  /// A process ends by itself.
  void end(std::uint32_t id);
  /// Of the programs started from now on; none: until they are ended.
  void set_run_time(std::optional<std::uint32_t> ms);

  // Observations
  std::vector<StartedProcess> started() const;
  /// By the program.
  std::vector<TerminatedProcess> terminated() const;
  std::size_t live_handles() const { return static_cast<std::size_t>(live_handles_.load()); }

 private:
  struct Entry;
  class Handle;
  std::shared_ptr<Entry> find_running(std::uint32_t id) const;

  Scheduler& scheduler_;
  Script& script_;
  const SimSession& session_;
  std::vector<std::shared_ptr<Entry>> entries_;  ///< ended ones as well
  std::uint32_t latest_id_ = 10'000;
  std::optional<std::uint32_t> run_time_ms_ = 100;
  std::vector<StartedProcess> started_;
  std::vector<TerminatedProcess> terminated_;
  std::atomic<int> live_handles_ = 0;
};

}  // namespace sonivo::sim
