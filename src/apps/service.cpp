// NorvellSonivoService: the session's background process, here on the simulated notebook beside the real driver.

#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "apps/service/host_heartbeat.h"
#include "apps/service/simulated_notebook.h"
#include "base/trace.h"
#include "driver/listener.h"
#include "driver/service_manager.h"
#include "host/entry.h"
#include "host/host_state.h"

namespace {

using namespace sonivo;

/// An application records from the virtual microphone and another plays to the virtual speaker, all the time.
void run_applications(sim::SimDriver& driver) {
  const auto format = pcm_format(48000, 16, 2);
  driver.open_recorder(format, [](std::span<const std::byte>) {});
  driver.open_player(format, sim::memory_source({}));
}

/// None when nobody watches this process.
std::unique_ptr<HostHeartbeat> start_heartbeat(HostState& host) {
  const auto period = driver::watchdog_period();
  if (!period) return nullptr;
  return std::make_unique<HostHeartbeat>(host, static_cast<std::uint32_t>(period->count()),
                                         [] { driver::tell_service_manager("WATCHDOG=1"); });
}

int serve(const std::string& socket, const std::string& folder, bool stream) {
  sim::Config config;
  config.schedule = sim::Schedule::free;
  config.folder = folder;
  sigset_t ends;
  ::sigemptyset(&ends);
  ::sigaddset(&ends, SIGTERM);
  ::sigaddset(&ends, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  SimulatedNotebook notebook(socket, config);
  sim::SimMachine& simulation = notebook.simulation();
  if (stream) run_applications(simulation.driver());
  std::thread signals([&] {
    int number = 0;
    ::sigwait(&ends, &number);
    simulation.session().query_end();
  });
  const auto host = std::make_shared<HostState>(notebook.seams());
  const auto heartbeat = start_heartbeat(*host);
  const int exit_code = RunService(*host);
  ::kill(::getpid(), SIGTERM);  // for the waiting thread where the service has ended by itself
  signals.join();
  return exit_code;
}

}  // namespace

int main(int count, char** arguments) {
  CLI::App app(
      "The background process of Sonivo, on a simulated notebook in real time: an application records from its "
      "virtual\n"
      "microphone and one plays to its virtual speaker. It talks to the driver at the socket and runs until "
      "SIGTERM.\n\n"
      "Example: NorvellSonivoService --socket /tmp/driver.sock --folder /tmp/notebook",
      "NorvellSonivoService");
  std::string socket;
  std::string folder = ".";
  bool stream = false;
  bool verbose = false;
  app.add_option("--socket", socket, "of the driver (default: $XDG_RUNTIME_DIR/sonivo/driver.sock)");
  app.add_option("--folder", folder, "where the notebook's folders models, bitmaps and user lie");
  app.add_flag("--stream", stream, "an application records from the virtual microphone, one plays to the speaker");
  app.add_flag("--verbose", verbose, "writes the traces to standard error");
  CLI11_PARSE(app, count, arguments);
  if (socket.empty()) {
    const auto usual = driver::default_socket_path();
    if (!usual) {
      std::fprintf(stderr, "error: XDG_RUNTIME_DIR is not set; give --socket PATH\n");
      return 1;
    }
    socket = usual->string();
  }
  std::optional<ScopedTraceSink> traces;
  if (verbose) {
    traces.emplace([](TraceLevel, std::string_view text) {
      std::fprintf(stderr, "%.*s", static_cast<int>(text.size()), text.data());
    });
  }
  return serve(std::filesystem::absolute(socket), folder, stream);
}
