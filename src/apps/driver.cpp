// NorvellSonivoDriver: the daemon behind the control channel.

#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/trace.h"
#include "driver/effect_properties.h"
#include "driver/listener.h"
#include "driver/server.h"
#include "driver/settings.h"
#include "driver/state_folder.h"

namespace {

using namespace sonivo;

driver::Server* serving = nullptr;

void end(int) { serving->stop(); }

void write_log(TraceLevel level, std::string_view text) {
  if (level == TraceLevel::debug) return;
  std::fprintf(stderr, "NorvellSonivoDriver: %.*s", static_cast<int>(text.size()), text.data());
}

std::filesystem::path chosen(const std::string& option, const std::optional<std::filesystem::path>& usual,
                             const char* what) {
  if (!option.empty()) return option;
  if (!usual) throw std::runtime_error(what);
  return *usual;
}

void serve(const std::string& socket, const std::string& state) {
  driver::Disk disk;
  driver::StateFolder folder(
      chosen(state, driver::default_state_folder(), "there is no home folder; give --state FOLDER"), disk);
  driver::Settings settings(folder);
  driver::EffectProperties properties(folder);
  std::optional<driver::ListenerPath> path;
  auto listener = driver::inherited_listener();
  if (!listener) {
    path.emplace(chosen(socket, driver::default_socket_path(), "XDG_RUNTIME_DIR is not set; give --socket PATH"));
    listener = path->take();
  }
  driver::Server server(std::move(*listener), settings, properties);

  serving = &server;
  struct sigaction action {};
  action.sa_handler = end;
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
  driver::tell_service_manager("READY=1");
  server.run();
  driver::tell_service_manager("STOPPING=1");
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
}

}  // namespace

int main(int count, char** arguments) {
  CLI::App app(
      "The driver of Sonivo: holds the settings and hands events to the service, over a socket.\n"
      "It runs until SIGTERM or SIGINT, and logs to standard error.\n\n"
      "Example: NorvellSonivoDriver --socket /tmp/driver.sock --state /tmp/driver-state",
      "NorvellSonivoDriver");
  std::string socket;
  std::string state;
  app.add_option(
      "--socket", socket,
      "where to listen (default: the socket of the service manager, else $XDG_RUNTIME_DIR/sonivo/driver.sock)");
  app.add_option("--state", state,
                 "folder of the settings (default: $XDG_STATE_HOME/sonivo, else ~/.local/state/sonivo)");
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? 0 : 2;
  }
  // A log that nobody reads and a limit on the size of files are no reason to end.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
  const ScopedTraceSink log(write_log);
  try {
    serve(socket, state);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
  }
}
