#include "host/companions.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <optional>
#include <vector>

#include "base/text.h"
#include "base/trace.h"

namespace sonivo {
namespace {

constexpr const char* kPlayerApplication = "NorvellPlayer_norvell!App";

/// The first process of the console's session with one of these names.
std::optional<ProcessInfo> find_companion(const Machine& machine, std::initializer_list<const char*> names,
                                          const char* caller) {
  std::vector<ProcessInfo> processes;
  if (const Error why = machine.processes.list(processes); why != error::kNone) {
    trace(TraceLevel::error, "[%s] WTSEnumerateProcesses error = %x.\n", caller, why);
    return std::nullopt;
  }
  const std::uint32_t session = machine.session.console_session();
  for (const ProcessInfo& process : processes) {
    const bool named = std::any_of(names.begin(), names.end(),
                                   [&](const char* name) { return equals_ignoring_case(process.name, name); });
    if (named && process.session == session) return process;
  }
  return std::nullopt;
}

bool end_companion(const Machine& machine, const ProcessInfo& process, std::uint32_t exit_code, const char* caller) {
  Error why = error::kNone;
  const std::unique_ptr<Process> handle = machine.processes.open(process.id, why);
  if (!handle) {
    trace(TraceLevel::error, "[%s] OpenProcess error = %x.\n", caller, why);
    return false;
  }
  why = handle->terminate(exit_code);
  if (why != error::kNone) {
    trace(TraceLevel::error, "[%s] TerminateProcess error = %x.\n", caller, why);
    return false;
  }
  trace(TraceLevel::info, "[%s] Successful! Program Terminated.\n", caller);
  return true;
}

}  // namespace

int SonivoStoreIsOff(const Machine& machine) {
  constexpr const char* kCaller = "SonivoStoreIsOff";
  const auto found = find_companion(machine, {"NorvellApp.exe", "NSVSdkTestV2.exe"}, kCaller);
  return found && end_companion(machine, *found, 0, kCaller) ? 1 : 0;
}

Status EvtPLYCTRL_PlayerIsOff(const Machine& machine) {
  constexpr const char* kCaller = "EvtPLYCTRL_PlayerIsOff";
  const auto found = find_companion(machine, {"NorvellPlayer.exe"}, kCaller);
  if (!found) return kFail;
  end_companion(machine, *found, found->id, kCaller);
  return kOk;
}

Status EvtPLYCTRL_PlayerIsOn(const Machine& machine) {
  Error why = error::kNone;
  const std::unique_ptr<Process> shell = machine.processes.start(
      {.program = "powershell",
       .arguments = {"-Command", std::string("Start-Process shell:AppsFolder\\") + kPlayerApplication},
       .hidden = true},
      why);
  if (!shell) {
    trace(TraceLevel::error, "[EvtPLYCTRL_PlayerIsOn] CreateProcess error = %x.\n", why);
    return kOk;
  }
  shell->wait();
  return kOk;
}

}  // namespace sonivo
