#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo setup` is asked to do.
struct SetupOptions {
  std::string socket;
  bool json = false;
  bool list = false;
  bool remove = false;
  std::optional<std::string> microphone;
  std::optional<std::string> chain;
  std::optional<std::string> params;
  std::optional<std::string> strength;
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_setup_command(CLI::App& app, SetupOptions& options);

/// `sonivo setup`: has the driver keep the parameters of the chains with a microphone of this machine, lists what it
/// keeps, or takes it back. Throws UsageError, and Failure with nothing changed unless it says so.
void run_setup_command(const SetupOptions& options, std::ostream& output);

}  // namespace sonivo::tool
