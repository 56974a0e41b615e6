#include "apps/tool/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <new>
#include <ostream>
#include <string_view>
#include <vector>

#include "apps/tool/failure.h"
#include "apps/tool/printable.h"
#include "apps/tool/relay_command.h"
#include "apps/tool/relay_options.h"

namespace sonivo::tool {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr const char* kRelayDescription =
    "Sends a WAV file through the whole microphone (or speaker) path on a simulated notebook.\n"
    "IN is what the physical microphone hears, OUT what an application records from the virtual\n"
    "one, from its first sample on.";

constexpr const char* kRelayExample =
    "Example:\n"
    "  sonivo relay speech.wav recorded.wav --period 441 --drift 100\n"
    "File names that start with a dash come last, after --:\n"
    "  sonivo relay --render -- -speech.wav -played.wav\n";

int report(std::ostream& errors, std::string_view text, int exit_code) {
  errors << "error: " << printable(text) << '\n';
  return exit_code;
}

void parse_and_run(std::vector<std::string> arguments, CLI::App& app, std::ostream& output, std::ostream& errors) {
  RelayOptions relay;
  CLI::App* const relay_command = app.add_subcommand("relay", kRelayDescription);
  relay_command->footer(kRelayExample);
  add_relay_options(*relay_command, relay);

  std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
  app.parse(std::move(arguments));
  if (relay_command->parsed()) run_relay_command(relay, output, errors);
}

}  // namespace

int run_command_line(std::span<const std::string> arguments, std::ostream& output, std::ostream& errors) {
  CLI::App app("Carries audio between a virtual endpoint pair and the physical endpoints of a notebook.", "sonivo");
  app.set_version_flag("--version", "sonivo " SONIVO_VERSION);
  app.footer("sonivo COMMAND --help shows the options of a command and an example.");
  app.require_subcommand(1);
  try {
    parse_and_run({arguments.begin(), arguments.end()}, app, output, errors);
    return kSuccess;
  } catch (const CLI::Success& request) {
    app.exit(request, output, errors);
    return kSuccess;
  } catch (const CLI::ParseError& error) {
    return report(errors, error.what(), kWrongUsage);
  } catch (const UsageError& error) {
    return report(errors, error.what(), kWrongUsage);
  } catch (const std::bad_alloc&) {
    return report(errors, "not enough memory for this file; cut it into shorter ones", kFailed);
  } catch (const std::exception& error) {
    return report(errors, error.what(), kFailed);
  }
}

}  // namespace sonivo::tool
