#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/status.h"

namespace sonivo {

struct ProcessInfo {
  std::uint32_t id = 0;
  std::uint32_t session = 0;
  std::string name;  ///< file name of its program
};

/// An open handle to a process. Any thread; closing it leaves the process alone.
class Process {
 public:
  virtual ~Process() = default;
  virtual Error terminate(std::uint32_t exit_code) = 0;
  /// Returns once the process has ended.
  virtual Error wait() = 0;
};

struct ProcessStart {
  std::string program;                 ///< path, or a name that the machine looks for
  std::vector<std::string> arguments;  ///< without the program itself
  bool hidden = false;                 ///< its first window is not shown
};

/// Processes of the machine. Any thread.
class Processes {
 public:
  virtual ~Processes() = default;
  /// All processes of all sessions, in the machine's order.
  virtual Error list(std::vector<ProcessInfo>& processes) = 0;
  /// For termination. Null, with the reason in `why`, when the process is gone or can't be had.
  virtual std::unique_ptr<Process> open(std::uint32_t id, Error& why) = 0;
  /// Starts a program in the session of this process. Null, with the reason in `why`, when it can't be started.
  virtual std::unique_ptr<Process> start(const ProcessStart& what, Error& why) = 0;
};

}  // namespace sonivo
