#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "apps/tool/driver_connection.h"
#include "apps/tool/status_report.h"
#include "platform/control_store.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo status` is asked to do.
struct StatusOptions {
  std::string socket;
  bool json = false;
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_status_command(CLI::App& app, StatusOptions& options);

/// `sonivo status`: prints what the driver holds and the service tells. Answers the exit code, status_exit_code().
/// Throws Failure when the driver can't be asked.
int run_status_command(const StatusOptions& options, std::ostream& output);

/// What both know, at one moment.
struct MachineStatus {
  std::string socket;
  control::Store settings;
  std::string report;  ///< as the service gave it; empty without one
  std::optional<ServiceReport> service;
  std::string report_fault;  ///< why there is no `service` in spite of a report
  control::Ages ages;
  std::uint64_t now_ms = 0;  ///< on the machine's monotonic clock

  bool is_paused() const { return service && service->is_paused(); }
  /// The service publishes its report every five seconds, unless it has said that it pauses: it hangs, or is stopped.
  bool is_silent() const {
    return !is_paused() && ages.report_ms != control::Ages::kNone && ages.report_ms > kSilentMs;
  }
  /// It takes the service two seconds to connect to a driver that came back, and seven where the former one told it of
  /// its end.
  bool has_new_driver() const { return report.empty() && ages.driver_ms < kConnectMs; }

 private:
  static constexpr std::uint64_t kSilentMs = 12'000;
  static constexpr std::uint64_t kConnectMs = 8000;
};

/// Throws Failure when the driver can't be asked.
MachineStatus read_status(DriverConnection& driver, const std::string& socket);
MachineStatus machine_status(std::string socket, control::Store settings, std::string report, const control::Ages& ages,
                             std::uint64_t now_ms = 0);

inline constexpr int kHealthy = 0;
inline constexpr int kNoService = 3;
inline constexpr int kTrouble = 4;
int status_exit_code(const MachineStatus& status);

/// As a table of a name and a value a line, without control characters whatever the report holds.
void print_status(std::ostream& output, const MachineStatus& status);
/// As one JSON object.
void print_status_json(std::ostream& output, const MachineStatus& status);

}  // namespace sonivo::tool
