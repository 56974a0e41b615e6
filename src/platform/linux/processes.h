#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <mutex>
#include <vector>

#include "base/descriptor.h"
#include "platform/processes.h"

namespace sonivo::linux {

/// Session of a process, kNoSession without one.
using SessionOf = std::function<std::uint32_t(pid_t process)>;

/// The processes below /proc, in the order of their numbers. Terminating one kills it: what its exit code should be has
/// no counterpart. A started program gets a session of its own, so that no terminal reaches it, and null for its input;
/// whether its window shows is its own matter.
class ProcProcesses final : public Processes {
 public:
  explicit ProcProcesses(SessionOf session_of, std::filesystem::path proc = "/proc");

  Error list(std::vector<ProcessInfo>& processes) override;
  std::unique_ptr<Process> open(std::uint32_t id, Error& why) override;
  std::unique_ptr<Process> start(const ProcessStart& what, Error& why) override;

 private:
  class Handle;
  void adopt(Descriptor child);
  void bury();

  const SessionOf session_of_;
  const std::filesystem::path proc_;
  std::mutex mutex_;
  std::vector<Descriptor> children_;  ///< that nobody waits for, until they have ended
};

}  // namespace sonivo::linux
