#include "apps/tool/setup_command.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

#include "apps/tool/chain_parameters.h"
#include "apps/tool/driver_connection.h"
#include "apps/tool/failure.h"
#include "apps/tool/json_output.h"
#include "apps/tool/machine_chain.h"
#include "apps/tool/microphones.h"
#include "apps/tool/own_names.h"
#include "apps/tool/printable.h"
#include "apps/tool/relay_options.h"
#include "platform/linux/folders.h"
#include "relay/effect_properties.h"

namespace sonivo::tool {

namespace {

constexpr const char* kSetupDescription =
    "Prepares this machine for a chain: has the driver keep the parameters of the chains with the built-in\n"
    "microphone, and makes it a machine of that chain. Without this no chain runs. Told again it changes nothing.\n"
    "\n"
    "The built-in microphone is known by its name, as the tables of microphone names have it. One that is chosen\n"
    "with --microphone and isn't known by them is entered in ~/.config/sonivo/microphones, as an array whose first\n"
    "two channels the beamformer may use.";

constexpr const char* kSetupExample =
    "Example:\n"
    "  sonivo setup\n"
    "  sonivo setup --microphone \"Internal Microphone\" --chain beamforming\n"
    "  sonivo setup --list\n"
    "  sonivo setup --remove\n";

constexpr const char* kRestartService = "Restart the service: systemctl --user restart NorvellSonivoService.";

bool needs_array_name(const Microphone& microphone, Chain chain) {
  const bool is_for_beams = chain == Chain::beamforming || chain == Chain::ai;
  return is_for_beams ? !is_microphone_array(microphone) : !IsBuiltInMicrophone(microphone.name);
}

std::string stored_text(const StoredParameters& stored) {
  if (!stored.any()) return "no parameters";
  std::string text = stored.key_cancel && stored.beamforming ? "parameters of all chains"
                     : stored.key_cancel                     ? "parameters of keycancel"
                     : stored.beamforming                    ? "parameters of beamforming and ai"
                                                             : "";
  if (!stored.strength) return text;
  std::ostringstream strength;
  strength << (text.empty() ? "" : ", ") << "strength " << *stored.strength;
  return text + strength.str();
}

nlohmann::ordered_json stored_json(const StoredParameters& stored) {
  nlohmann::ordered_json json{{"keycancel", stored.key_cancel}, {"beamforming", stored.beamforming}};
  json["strength"] = stored.strength ? nlohmann::ordered_json(*stored.strength) : nlohmann::ordered_json(nullptr);
  return json;
}

void list_microphones(const SetupOptions& options, std::ostream& output) {
  DriverConnection driver(options.socket);
  const Chain chain = driver_chain(driver);
  const auto microphones = present_microphones();
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const Microphone& each : microphones) {
    EndpointProperties endpoint(driver, each.id);
    const StoredParameters stored = stored_parameters(endpoint);
    const bool is_built_in = IsBuiltInMicrophone(each.name);
    if (options.json) {
      all.push_back({{"id", each.id},
                     {"name", each.name},
                     {"built_in", is_built_in},
                     {"default", each.is_default},
                     {"stored", stored_json(stored)}});
    } else {
      output << printable(each.name) << "\n  " << printable(each.id) << "; " << (is_built_in ? "built in; " : "")
             << (each.is_default ? "the default; " : "") << stored_text(stored) << '\n';
    }
  }
  if (options.json) return write_json(output, {{"chain", to_string(chain)}, {"microphones", all}});
  if (microphones.empty()) output << "there is no microphone\n";
  output << "chain of this machine: " << to_string(chain) << '\n';
}

/// What was done, in a sentence or two.
struct SetupOutcome {
  Microphone microphone;
  Chain chain = Chain::none;
  bool had_parameters = false;
  bool changed_parameters = false;
  bool changed_chain = false;
  bool changed_names = false;
  bool service_runs = false;

  bool changed() const { return changed_parameters || changed_chain || changed_names; }
  /// What the service looks at when it starts alone.
  bool needs_restart() const {
    return service_runs && (changed_chain || changed_names || (changed_parameters && !had_parameters));
  }
};

void print_outcome(const SetupOutcome& outcome, std::ostream& output) {
  const std::string microphone = "'" + printable(outcome.microphone.name) + "'";
  const std::string chain = to_string(outcome.chain);
  if (!outcome.changed()) {
    output << microphone << " is set up for the chain " << chain << " already; nothing has changed.\n";
    return;
  }
  output << microphone << " is set up for the chain " << chain << ". ";
  if (outcome.changed_names) output << "From now on its name counts as that of the built-in array. ";
  if (outcome.needs_restart()) {
    output << kRestartService << '\n';
  } else if (outcome.service_runs) {
    output << "The service takes it up at once, or with the next recording.\n";
  } else {
    output << "The service finds it when it starts.\n";
  }
}

void set_up(const SetupOptions& options, std::ostream& output) {
  const auto strength =
      options.strength ? std::optional(static_cast<float>(parse_strength(*options.strength))) : std::nullopt;
  const Chain wanted = options.chain ? parse_chain(*options.chain) : Chain::none;
  DriverConnection driver(options.socket);
  const Chain former = driver_chain(driver);
  const auto microphones = present_microphones();

  SetupOutcome outcome;
  const Chain usual = former == Chain::none ? Chain::keycancel : former;
  outcome.chain = options.chain ? wanted : usual;
  outcome.microphone =
      options.microphone ? microphone_called(*options.microphone, microphones) : built_in_microphone(microphones);
  EndpointProperties endpoint(driver, outcome.microphone.id);
  outcome.had_parameters = stored_parameters(endpoint).any();
  const auto properties = chain_properties(endpoint, outcome.chain, options.params, strength);
  OwnNames names(linux::own_microphone_table());
  if (options.microphone && needs_array_name(outcome.microphone, outcome.chain)) {
    outcome.changed_names = names.add(outcome.microphone.id);
  }
  outcome.changed_parameters = endpoint.set(properties) != 0;
  outcome.changed_chain = outcome.chain != former;
  if (outcome.changed_chain) set_driver_chain(driver, outcome.chain);
  names.commit();
  outcome.service_runs = !driver.report().empty();
  if (!options.json) return print_outcome(outcome, output);
  write_json(output, {{"microphone", {{"id", outcome.microphone.id}, {"name", outcome.microphone.name}}},
                      {"chain", to_string(outcome.chain)},
                      {"changed", outcome.changed()},
                      {"restart_service", outcome.needs_restart()}});
}

/// Also with one that isn't there, by its id.
std::string id_to_forget(const SetupOptions& options, DriverConnection& driver) {
  if (options.microphone) {
    EndpointProperties named(driver, *options.microphone);
    if (stored_parameters(named).any()) return *options.microphone;
  }
  const auto microphones = present_microphones();
  return (options.microphone ? microphone_called(*options.microphone, microphones) : built_in_microphone(microphones))
      .id;
}

void remove_setup(const SetupOptions& options, std::ostream& output) {
  DriverConnection driver(options.socket);
  const std::string id = id_to_forget(options, driver);
  EndpointProperties endpoint(driver, id);
  OwnNames names(linux::own_microphone_table());
  bool changed = names.remove(id);
  changed |= remove_chain_properties(endpoint);
  names.commit();
  const bool needs_restart = changed && !driver.report().empty();
  if (options.json) {
    return write_json(output, {{"microphone", {{"id", id}}}, {"changed", changed}, {"restart_service", needs_restart}});
  }
  output << "Nothing is kept with '" << printable(id) << (changed ? "' any more." : "'; nothing has changed.");
  output << (needs_restart ? std::string(" ") + kRestartService : "") << '\n';
}

}  // namespace

CLI::App* add_setup_command(CLI::App& app, SetupOptions& options) {
  CLI::App* const command = app.add_subcommand("setup", kSetupDescription);
  command->footer(kSetupExample);
  add_socket_option(*command, options.socket);
  add_json_option(*command, options.json);
  command
      ->add_option("--microphone", options.microphone,
                   "the microphone, by its name, its id or a part of them (default: the built-in one)")
      ->type_name("NAME");
  command
      ->add_option("--chain", options.chain,
                   "none, keycancel, beamforming or ai (default: the machine's, keycancel where it has none)")
      ->type_name("CHAIN");
  command->add_option("--params", options.params, "parameter blob of the chain (default: the installed set)")
      ->type_name("BLOB");
  command->add_option("--strength", options.strength, "of the ai chain, 0 to 1 (default 1)")->type_name("S");
  command->add_flag("--list", options.list, "list the microphones and what is kept with each, and set nothing");
  command->add_flag("--remove", options.remove, "take back what is kept with the microphone");
  return command;
}

void run_setup_command(const SetupOptions& options, std::ostream& output) {
  const bool sets = options.chain || options.params || options.strength;
  if ((options.list && options.remove) || (sets && (options.list || options.remove))) {
    throw UsageError("--list and --remove go with no other of --list, --remove, --chain, --params and --strength");
  }
  if (options.list) return list_microphones(options, output);
  if (options.remove) return remove_setup(options, output);
  set_up(options, output);
}

}  // namespace sonivo::tool
