#include "apps/tool/settings_command.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <variant>

#include "apps/tool/driver_connection.h"
#include "apps/tool/failure.h"
#include "apps/tool/json_output.h"
#include "apps/tool/printable.h"
#include "apps/tool/setting_values.h"

namespace sonivo::tool {

namespace {

using control::Setting;
using control::Store;

constexpr int kNameWidth = 18;

void list_settings(const SettingsOptions& options, std::ostream& output) {
  const Store store = DriverConnection(options.socket).settings();
  if (options.json) return write_json(output, settings_json(store));
  for (const Setting& each : control::settings()) {
    if (is_user_layer(each)) continue;
    output << std::left << std::setw(kNameWidth) << each.name;
    if (const Setting* const user = user_layer(each)) {
      output << "user " << value_text(store, *user) << ", effective " << value_text(store, each) << '\n';
    } else {
      output << printable(value_text(store, each)) << '\n';
    }
  }
}

void get_setting(const SettingsOptions& options, std::ostream& output) {
  const Setting& setting = setting_named(options.name);
  const Store store = DriverConnection(options.socket).settings();
  if (options.json) {
    write_json(output, {{setting.name, value_json(store, setting)}});
  } else {
    output << printable(value_text(store, setting)) << '\n';
  }
}

std::vector<SetRequest> checked_requests(const SettingsOptions& options) {
  std::vector<std::string> words{options.name, options.value};
  words.insert(words.end(), options.more.begin(), options.more.end());
  std::vector<SetRequest> requests;
  for (std::size_t i = 0; i < words.size(); i += 2) {
    const Setting& setting = setting_named(words[i]);
    if (i + 1 == words.size()) throw UsageError("a value is missing for " + words[i]);
    if (is_of_the_machine(setting) && !options.machine) {
      throw UsageError(words[i] +
                       " tells what the machine is like, which only the machine sets; add --machine to set it all the "
                       "same");
    }
    add_requests(requests, setting, words[i + 1]);
  }
  return requests;
}

/// The settings that were named, as the driver holds them now.
nlohmann::ordered_json named_settings_json(const SettingsOptions& options, const Store& store) {
  nlohmann::ordered_json json;
  json[options.name] = value_json(store, setting_named(options.name));
  for (std::size_t i = 0; i < options.more.size(); i += 2) {
    json[options.more[i]] = value_json(store, setting_named(options.more[i]));
  }
  return json;
}

void set_settings(const SettingsOptions& options, std::ostream& output) {
  const std::vector<SetRequest> requests = checked_requests(options);
  DriverConnection driver(options.socket);
  for (const SetRequest& each : requests) {
    if (const auto* const number = std::get_if<std::uint32_t>(&each.value)) {
      driver.set_number(each.code, *number, each.name);
    } else {
      driver.set_text(each.code, std::get<std::u16string>(each.value), each.name);
    }
  }
  if (options.json) write_json(output, named_settings_json(options, driver.settings()));
}

constexpr const char* kSetDescription =
    "Sets values; nothing is sent unless all of them are right.\n"
    "  auto-mute, auto-exit, enrolment-dialog   on or off\n"
    "  keyboard-cancel, beamforming,            on or off, as a settings application does it: what the\n"
    "  speech-enhance, voice-model              user wants and what is in effect, both; followed by\n"
    "                                           -user the one layer that the user's wish is kept in\n"
    "  meeting-mode                             off or a position, 1 to 4: sets speaker-mode and\n"
    "                                           headphone-mode, too\n"
    "  speaker-mode, headphone-mode             0 to 4\n"
    "  model                                    small, medium or large\n"
    "  capture-endpoint, render-endpoint        id of an endpoint, or default\n"
    "  enrolment                                start, abort or a number\n"
    "  enrolment-file, enrolment-folder,        text of at most 259 characters\n"
    "  text-1, text-2\n"
    "  generation, function, generation-mic,    with --machine: numbers, and on or off for headphone\n"
    "  function-mic, headphone";

void add_set_command(CLI::App& command, SettingsOptions& options) {
  CLI::App* const set = command.add_subcommand("set", kSetDescription);
  set->footer(
      "Example:\n"
      "  sonivo settings set keyboard-cancel on model small\n"
      "  sonivo settings set capture-endpoint default\n");
  add_socket_option(*set, options.socket);
  add_json_option(*set, options.json);
  set->add_flag("--machine", options.machine, "set what tells the state of the machine, too");
  set->add_option("NAME", options.name, "name of a setting; more names and values may follow the first ones")
      ->type_name("TEXT")
      ->required();
  set->add_option("VALUE", options.value, "its new value")->type_name("TEXT")->required();
  // Taken as they are: the parser splits a value in brackets of an option that may come more than once.
  set->allow_extras();
  set->callback([&options, set] {
    options.action = SettingsOptions::Action::set;
    options.more = set->remaining();
    if (!options.more.empty() && options.more.front() == "--") options.more.erase(options.more.begin());
  });
}

}  // namespace

void add_settings_commands(CLI::App& command, SettingsOptions& options) {
  command.require_subcommand(1);
  command.footer(
      "Example:\n"
      "  sonivo settings list\n"
      "  sonivo settings get keyboard-cancel\n"
      "  sonivo settings set keyboard-cancel on\n");

  CLI::App* const list = command.add_subcommand(
      "list", "Lists all settings. Where there are two layers: what the user wants, and what is in effect.");
  list->footer("Example:\n  sonivo settings list --json\n");
  add_socket_option(*list, options.socket);
  add_json_option(*list, options.json);
  list->callback([&options] { options.action = SettingsOptions::Action::list; });

  CLI::App* const get = command.add_subcommand("get", "Prints the value of one setting, as set takes it.");
  get->footer("Example:\n  sonivo settings get keyboard-cancel\n  sonivo settings get keyboard-cancel-user\n");
  add_socket_option(*get, options.socket);
  add_json_option(*get, options.json);
  get->add_option("NAME", options.name, "name of the setting")->type_name("TEXT")->required();
  get->callback([&options] { options.action = SettingsOptions::Action::get; });

  add_set_command(command, options);
}

void run_settings_command(const SettingsOptions& options, std::ostream& output) {
  switch (options.action) {
    case SettingsOptions::Action::none:
      break;
    case SettingsOptions::Action::list:
      return list_settings(options, output);
    case SettingsOptions::Action::get:
      return get_setting(options, output);
    case SettingsOptions::Action::set:
      return set_settings(options, output);
  }
}

}  // namespace sonivo::tool
