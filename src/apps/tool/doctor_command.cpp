#include "apps/tool/doctor_command.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>

#include "apps/tool/driver_connection.h"
#include "apps/tool/json_output.h"
#include "apps/tool/machine_facts.h"
#include "apps/tool/printable.h"

namespace sonivo::tool {

namespace {

constexpr int kWell = 0;
constexpr int kNotWell = 4;

constexpr const char* kDoctorDescription =
    "Looks at all that can be wrong on this machine: the session, PipeWire, its devices and their mutes, the driver,\n"
    "the service, parameters, models, real-time scheduling. Says of each what is and, where something is wrong, what\n"
    "to do.\n"
    "Takes a few seconds at most.\n"
    "Exit codes:\n"
    "  0  all is well\n"
    "  1  the machine can't be looked at\n"
    "  2  the arguments make no sense\n"
    "  4  something is wrong";

const char* kind_name(Finding::Kind kind) {
  switch (kind) {
    case Finding::Kind::good:
      return "ok";
    case Finding::Kind::hint:
      return "hint";
    case Finding::Kind::trouble:
      break;
  }
  return "trouble";
}

}  // namespace

void print_findings(std::ostream& output, const std::vector<Finding>& findings) {
  for (const Finding& each : findings) {
    output << std::left << std::setw(9) << kind_name(each.kind) << printable(each.text);
    if (!each.advice.empty()) output << ' ' << printable(each.advice);
    output << '\n';
  }
  output << (is_well(findings) ? "All is well.\n" : "Something is wrong.\n");
}

void print_findings_json(std::ostream& output, const std::vector<Finding>& findings) {
  nlohmann::ordered_json json{{"well", is_well(findings)}, {"findings", nlohmann::ordered_json::array()}};
  for (const Finding& each : findings) {
    json["findings"].push_back(
        {{"kind", kind_name(each.kind)}, {"subject", each.subject}, {"text", each.text}, {"advice", each.advice}});
  }
  write_json(output, json);
}

CLI::App* add_doctor_command(CLI::App& app, DoctorOptions& options) {
  CLI::App* const command = app.add_subcommand("doctor", kDoctorDescription);
  command->footer("Example:\n  sonivo doctor\n  sonivo doctor --json\n");
  add_socket_option(*command, options.socket);
  add_json_option(*command, options.json);
  return command;
}

int run_doctor_command(const DoctorOptions& options, std::ostream& output) {
  const auto all = findings(gather_facts(options.socket));
  if (options.json) {
    print_findings_json(output, all);
  } else {
    print_findings(output, all);
  }
  return is_well(all) ? kWell : kNotWell;
}

}  // namespace sonivo::tool
