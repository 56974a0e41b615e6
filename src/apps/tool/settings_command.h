#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo settings` is asked to do.
struct SettingsOptions {
  enum class Action { none, list, get, set } action = Action::none;
  std::string socket;
  bool json = false;
  bool machine = false;  ///< may set what only the machine itself has reason to
  std::string name;
  std::string value;
  std::vector<std::string> more;  ///< further names and values by turns
};

/// Declares `sonivo settings list`, `get` and `set`. Parsing fills `options`, which must outlive it.
void add_settings_commands(CLI::App& command, SettingsOptions& options);

/// Lists, reads or changes what the driver holds. An endpoint that the service doesn't know is set all the same, with a
/// line on `errors`. Throws UsageError before anything is sent, and Failure.
void run_settings_command(const SettingsOptions& options, std::ostream& output, std::ostream& errors);

}  // namespace sonivo::tool
