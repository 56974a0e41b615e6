#include "apps/tool/status_command.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <span>
#include <sstream>
#include <utility>

#include "apps/tool/driver_connection.h"
#include "apps/tool/failure.h"
#include "apps/tool/json_output.h"
#include "apps/tool/printable.h"
#include "apps/tool/setting_values.h"
#include "relay/gates.h"

namespace sonivo::tool {

namespace {

using control::Setting;
using control::Store;

constexpr const char* kStatusDescription =
    "Tells how the machine is: what the driver holds, and what the service does with it.\n"
    "Exit codes:\n"
    "  0  healthy\n"
    "  1  the driver can't be reached\n"
    "  2  the arguments make no sense\n"
    "  3  the driver answers, but the service does not run\n"
    "  4  the service tells of trouble, or what can't be understood, or does not answer";

struct Gates {
  bool key_cancel = false;
  bool beamforming = false;
  bool ai_speech = false;
  bool mode_threads() const { return beamforming || ai_speech; }
};

Gates gates_for(std::uint32_t function_mic, std::uint32_t generation_mic) {
  return {GateKeyCancel(function_mic, generation_mic), GateBeamForming(function_mic, generation_mic),
          GateAISpeech(function_mic, generation_mic)};
}

/// Of the service; those that it would find without one.
Gates gates_of(const MachineStatus& status) {
  if (status.service) return gates_for(status.service->function_mic, status.service->generation_mic);
  const std::uint32_t generation = status.settings.number(control::GetSonivoDrvGeneration);
  if (generation < 8 || generation == 9) return {};
  return gates_for(status.settings.number(control::GetFunctionMic), status.settings.number(control::GetGenerationMic));
}

std::string gates_text(const Gates& gates) {
  if (gates.key_cancel) return "key cancel";
  if (gates.beamforming) return "beamforming, mode threads";
  return gates.ai_speech ? "AI speech, mode threads" : "none";
}

const char* expected_chain(const Gates& gates) {
  if (gates.key_cancel) return "keycancel";
  if (gates.beamforming) return "beamforming";
  return gates.ai_speech ? "ai" : "none";
}

std::string service_text(const MachineStatus& status) {
  if (status.is_silent()) {
    return "has not answered for " + std::to_string(status.ages.report_ms / 1000) +
           " s; restart it: systemctl --user restart NorvellSonivoService";
  }
  if (status.is_paused()) {
    return status.service->pause == "locked" ? "waits until the session is unlocked" : "waits until the machine wakes";
  }
  if (status.service) return status.service->driver_ready ? "runs" : "runs, but is not ready with the driver";
  if (status.has_new_driver()) {
    return "has not connected yet: the driver started " + std::to_string(status.ages.driver_ms / 1000) + " s ago";
  }
  if (status.report.empty()) return "does not run; start NorvellSonivoService";
  return "runs, but its report can't be relied on: " + status.report_fault;
}

std::string state_text(const std::string& state) {
  if (state == "eWaitVirtualDriver") return "looks for the virtual device";
  if (state == "eWaitVirtualStream") return "waits for an application";
  if (state == "eVirtualStreaming") return "opens the physical endpoint";
  return "streams";
}

const char* clock_text(std::int32_t feedback) {
  if (feedback == 0) return "at its nominal rate";
  return feedback > 0 ? "faster" : "slower";
}

/// What the driver holds and, where the service sees it otherwise, what that sees.
std::string both_text(const std::string& driver, const std::optional<std::string>& service) {
  return !service || *service == driver ? driver : "driver " + driver + ", service " + *service;
}

std::string on_or_off(bool flag) { return flag ? "on" : "off"; }

std::string meeting_text(std::uint32_t position, bool room_correction) {
  if (position == 0) return "off";
  return std::to_string(position) + (room_correction ? " with room correction" : "");
}

std::string driver_meeting_text(const Store& settings) {
  if (settings.number(control::NSV_GET_LAUNCHED_MTG) == 0) return "off";
  const std::uint32_t launched = settings.number(control::NSV_GET_ALL_SP_MTG) + 1;
  return launched > 2 ? meeting_text(launched - 2, true) : meeting_text(launched, false);
}

std::string last_trouble_text(const ServiceReport& report, std::uint64_t now_ms) {
  if (report.last_trouble.empty()) return "none";
  const std::uint64_t age_ms = now_ms > report.last_trouble_ms ? now_ms - report.last_trouble_ms : 0;
  return report.last_trouble + ", " + std::to_string(age_ms / 1000) + " s ago";
}

/// What runs and, where that is another one, what the gates call for.
std::string chain_text(const std::string& runs, const std::string& expected) {
  return runs == expected ? runs : runs + " now, " + expected + " by the gates";
}

/// A table of a name and a value a line.
class StatusTable {
 public:
  StatusTable(std::ostream& output, const MachineStatus& status) : output_(output), status_(status) {}

  void print() {
    const auto& service = status_.service;
    row("driver", "answers at " + status_.socket);
    row("service", service_text(status_));
    print_machine();
    row("meeting mode",
        both_text(driver_meeting_text(status_.settings), seen_by_service([](const ServiceReport& report) {
                    return meeting_text(report.meeting_mode, report.room_correction);
                  })));
    row("headphones", both_text(value("headphone"), seen_by_service([](const ServiceReport& report) {
                                  return on_or_off(report.headphones);
                                })));
    row("auto mute", both_text(value("auto-mute"), seen_by_service([](const ServiceReport& report) {
                                 return on_or_off(report.auto_mute);
                               })));
    for (const char* const name : {"keyboard-cancel", "beamforming", "speech-enhance", "voice-model"})
      print_layers(name);
    row("model", value("model"));
    row("enrolment", value("enrolment"));
    print_stream("microphone", "capture-endpoint", service ? &service->capture : nullptr);
    if (service && service->capture.blocks != 0) print_chain(service->capture);
    print_stream("speaker", "render-endpoint", service ? &service->render : nullptr);
    if (!service) return;
    row("trouble", service->trouble.empty() ? "none" : service->trouble);
    row("last trouble", last_trouble_text(*service, status_.now_ms));
  }

 private:
  void row(const std::string& name, const std::string& value) {
    output_ << std::left << std::setw(18) << name << printable(value) << '\n';
  }

  std::string value(const char* name) const { return value_text(status_.settings, setting_named(name)); }

  template <typename Text>
  std::optional<std::string> seen_by_service(Text text) const {
    if (!status_.service) return std::nullopt;
    return text(*status_.service);
  }

  void print_machine() {
    const auto words = [](std::uint32_t generation, std::uint32_t function, std::uint32_t generation_mic,
                          std::uint32_t function_mic) {
      return "generation " + std::to_string(generation) + ", function " + std::to_string(function) +
             "; microphone generation " + std::to_string(generation_mic) + ", function " + std::to_string(function_mic);
    };
    const Gates gates = gates_of(status_);
    if (status_.service) {
      const ServiceReport& report = *status_.service;
      row("machine", words(report.generation, report.function, report.generation_mic, report.function_mic));
      row("gates", gates_text(gates));
      row("chain", chain_text(report.chain, expected_chain(gates)));
    } else {
      const auto number = [&](std::uint32_t get_code) { return status_.settings.number(get_code); };
      row("machine", words(number(control::GetSonivoDrvGeneration), number(control::GetFunction),
                           number(control::GetGenerationMic), number(control::GetFunctionMic)));
      row("gates", gates_text(gates));
      row("chain", std::string(expected_chain(gates)) + ", once the service runs");
    }
  }

  void print_layers(const char* name) {
    const Setting& effective = setting_named(name);
    row(name, "user " + value_text(status_.settings, *user_layer(effective)) + ", effective " + value(name));
  }

  void print_stream(const char* name, const char* endpoint, const StreamReport* stream) {
    if (stream == nullptr) return row(name, "set to " + value(endpoint));
    row(name, "set to " + value(endpoint) + ", uses " + (stream->endpoint.empty() ? "none" : stream->endpoint));
    row("  state",
        state_text(stream->state) + " (" + stream->state + "); streams so far: " + std::to_string(stream->streams));
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << stream->fill_mean_ms << " ms mean, " << stream->fill_min_ms
         << " ms lowest; the virtual clock runs " << clock_text(stream->feedback);
    row("  ring fill", text.str());
    row("  underruns", std::to_string(stream->underruns) + ", overruns " + std::to_string(stream->overruns));
  }

  void print_chain(const CaptureReport& capture) {
    row("  blocks", std::to_string(capture.blocks) + ", silenced " + std::to_string(capture.silenced) +
                        ", unenhanced " + std::to_string(capture.unenhanced));
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << capture.chain_latency_ms << " ms of the chain, "
         << capture.fill_mean_ms << " ms of the ring";
    row("  latency", text.str());
    text.str("");
    text << 100 * capture.load << " % of real time; a block takes " << capture.execute_mean_us << " us, at most "
         << capture.execute_max_us << " us";
    row("  load", text.str());
  }

  std::ostream& output_;
  const MachineStatus& status_;
};

std::string health_text(const MachineStatus& status) {
  switch (status_exit_code(status)) {
    case kHealthy:
      return "healthy";
    case kNoService:
      return "no service";
    default:
      return "trouble";
  }
}

/// The clock that the service tells times of.
std::uint64_t monotonic_ms() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

/// The members of the object that print_status_json() makes, as far as they are known without a driver.
void print_failure_json(std::ostream& output, const std::string& socket, const std::string& fault) {
  nlohmann::ordered_json json;
  json["health"] = "no driver";
  json["driver"] = {{"socket", socket}, {"running_ms", nullptr}, {"settings", nullptr}, {"fault", fault}};
  for (const char* const unknown : {"gates", "service"}) json[unknown] = nullptr;
  json["report_fault"] = "";
  json["report_age_ms"] = nullptr;
  write_json(output, json);
}

control::Ages ages_at(DriverConnection& driver) {
  control::Ages ages;
  std::uint32_t transferred = 0;
  const Error refused =
      driver.request(control::NSV_READ_AGES, {}, std::as_writable_bytes(std::span(&ages, 1)), transferred);
  if (refused != error::kNone || transferred != sizeof ages) {
    throw Failure(
        "the driver does not tell how old the service's report is: install a driver and a sonivo of the same "
        "version");
  }
  return ages;
}

}  // namespace

MachineStatus read_status(DriverConnection& driver, const std::string& socket) {
  const Store settings = driver.settings();
  const std::string report = driver.report();
  return machine_status(socket, settings, report, ages_at(driver), monotonic_ms());
}

MachineStatus machine_status(std::string socket, control::Store settings, std::string report, const control::Ages& ages,
                             std::uint64_t now_ms) {
  MachineStatus status{std::move(socket), std::move(settings), std::move(report), std::nullopt, {}, ages, now_ms};
  if (status.report.empty()) return status;
  try {
    status.service = read_service_report(status.report);
  } catch (const ReportFault& fault) {
    status.report_fault = fault.what();
  }
  return status;
}

int status_exit_code(const MachineStatus& status) {
  if (status.report.empty()) return kNoService;
  return status.service && status.service->is_healthy() && !status.is_silent() ? kHealthy : kTrouble;
}

void print_status(std::ostream& output, const MachineStatus& status) { StatusTable(output, status).print(); }

void print_status_json(std::ostream& output, const MachineStatus& status) {
  const Gates gates = gates_of(status);
  nlohmann::ordered_json json;
  json["health"] = health_text(status);
  json["driver"] = {{"socket", status.socket},
                    {"running_ms", status.ages.driver_ms},
                    {"settings", settings_json(status.settings)},
                    {"fault", ""}};
  json["gates"] = {{"key_cancel", gates.key_cancel},
                   {"beamforming", gates.beamforming},
                   {"ai_speech", gates.ai_speech},
                   {"mode_threads", gates.mode_threads()}};
  if (status.service) {
    json["service"] = nlohmann::ordered_json::parse(status.report);
  } else {
    json["service"] = nullptr;
  }
  json["report_fault"] = status.report_fault;
  json["report_age_ms"] = nullptr;
  if (status.ages.report_ms != control::Ages::kNone) json["report_age_ms"] = status.ages.report_ms;
  write_json(output, json);
}

CLI::App* add_status_command(CLI::App& app, StatusOptions& options) {
  CLI::App* const command = app.add_subcommand("status", kStatusDescription);
  command->footer("Example:\n  sonivo status\n  sonivo status --json\n");
  add_socket_option(*command, options.socket);
  add_json_option(*command, options.json);
  return command;
}

int run_status_command(const StatusOptions& options, std::ostream& output) {
  std::string socket = options.socket;
  try {
    socket = driver_socket(socket);
    DriverConnection driver(socket);
    const MachineStatus status = read_status(driver, socket);
    options.json ? print_status_json(output, status) : print_status(output, status);
    return status_exit_code(status);
  } catch (const Failure& failure) {
    if (options.json) print_failure_json(output, socket, failure.what());
    throw;
  }
}

}  // namespace sonivo::tool
