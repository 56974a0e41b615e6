// NorvellSonivoDriver: the daemon behind the control channel.

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/trace.h"
#include "daemon_options.h"
#include "driver/effect_properties.h"
#include "driver/line_log.h"
#include "driver/listener.h"
#include "driver/monotonic_time.h"
#include "driver/server.h"
#include "driver/service_manager.h"
#include "driver/settings.h"
#include "driver/state_folder.h"

namespace {

using namespace sonivo;

driver::Server* serving = nullptr;

void end(int) { serving->stop(); }

std::filesystem::path chosen(const std::string& option, const std::optional<std::filesystem::path>& usual,
                             const char* what) {
  if (!option.empty()) return option;
  if (!usual) throw std::runtime_error(what);
  return *usual;
}

/// For the signals that end the driver, that of a terminal that closes among them. One that whoever started the driver
/// has it ignore (nohup) stays ignored.
void handle_ends(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  for (const int each : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction former {};
    if (::sigaction(each, nullptr, &former) == 0 && former.sa_handler != SIG_IGN) ::sigaction(each, &action, nullptr);
  }
}

/// None when nobody watches this process.
std::optional<driver::Heartbeat> heartbeat() {
  const auto period = driver::watchdog_period();
  if (!period) return std::nullopt;
  return driver::Heartbeat{*period, [] { driver::tell_service_manager("WATCHDOG=1"); }};
}

struct WrongUsage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void serve(const std::string& socket, const std::string& state) {
  auto listener = driver::inherited_listener();
  if (listener && !socket.empty()) throw WrongUsage("--socket is given, and the service manager hands over a socket");
  driver::Disk disk;
  driver::StateFolder folder(
      chosen(state, driver::default_state_folder(), "there is no home folder; give --state FOLDER"), disk);
  driver::Settings settings(folder);
  driver::EffectProperties properties(folder);
  std::optional<driver::ListenerPath> path;
  if (!listener) {
    path.emplace(chosen(socket, driver::default_socket_path(), "XDG_RUNTIME_DIR is not set; give --socket PATH"));
    listener = path->take();
  }
  driver::Server server(std::move(*listener), settings, properties);

  serving = &server;
  handle_ends(end);
  driver::tell_service_manager("READY=1");
  server.run(heartbeat());
  driver::tell_service_manager("STOPPING=1");
  handle_ends(SIG_IGN);
}

}  // namespace

int main(int count, char** arguments) {
  CLI::App app(
      "The driver of Sonivo: holds the settings and hands events to the service, over a socket.\n"
      "It runs until SIGTERM, SIGINT or SIGHUP, and logs to standard error.\n\n"
      "Example: NorvellSonivoDriver --socket $XDG_RUNTIME_DIR/sonivo-try/driver.sock --state ~/sonivo-try",
      "NorvellSonivoDriver");
  std::string socket;
  std::string state;
  app.add_option("--socket", socket,
                 "where to listen (default: the socket of the service manager, beside which it may not be given, else "
                 "$XDG_RUNTIME_DIR/sonivo/driver.sock); nobody else may write to its folder");
  app.add_option("--state", state,
                 "folder of the settings, to which nobody else may write (default: $XDG_STATE_HOME/sonivo, else "
                 "~/.local/state/sonivo)");
  if (const auto code = parse_options(app, count, arguments)) return *code;
  // A log that nobody reads and a limit on the size of files are no reason to end.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
  driver::LineLog lines(STDERR_FILENO, "NorvellSonivoDriver", driver::monotonic_ms);
  const ScopedTraceSink log([&lines](TraceLevel level, std::string_view text) {
    if (level != TraceLevel::debug) lines.write(text);
  });
  try {
    serve(socket, state);
    return 0;
  } catch (const WrongUsage& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
  }
}
