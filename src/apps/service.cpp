// NorvellSonivoService: the session's background process, on this machine or on a simulated notebook.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "apps/service/host_heartbeat.h"
#include "apps/service/own_machine.h"
#include "apps/service/signals_end_session.h"
#include "apps/service/simulated_notebook.h"
#include "base/trace.h"
#include "daemon_options.h"
#include "driver/line_log.h"
#include "driver/listener.h"
#include "driver/monotonic_time.h"
#include "driver/service_manager.h"
#include "host/entry.h"
#include "host/host_state.h"
#include "platform/linux/control_socket.h"

namespace {

using namespace sonivo;

/// The threads are waited for without a limit, one of them for a lock that a lost driver may leave taken.
constexpr std::chrono::seconds kLongestEnd{20};

/// A table that is wrong is told of and left out.
pipewire::FriendlyNames microphone_names() {
  std::vector<std::string> faults;
  auto names = pipewire::names_of_tables(linux::microphone_tables(), faults);
  for (const std::string& fault : faults) std::fprintf(stderr, "warning: %s\n", fault.c_str());
  return names;
}

/// None when nobody watches this process.
std::unique_ptr<HostHeartbeat> start_heartbeat(HostState& host) {
  const auto period = driver::watchdog_period();
  if (!period) return nullptr;
  return std::make_unique<HostHeartbeat>(host, static_cast<std::uint32_t>(period->count()),
                                         [] { driver::tell_service_manager("WATCHDOG=1"); });
}

int serve(const Machine& machine, ChainFactory make_chains, const std::string& socket,
          std::function<void()> end_session) {
  const SignalsEndSession signals(std::move(end_session), kLongestEnd);
  const auto host = std::make_shared<HostState>(machine, std::move(make_chains));
  host->m_DriverNotes.SetWriter([socket](const std::string& line) {
    std::fprintf(stderr, "NorvellSonivoService: %s (socket %s)\n", line.c_str(), socket.c_str());
  });
  const auto heartbeat = start_heartbeat(*host);
  driver::tell_service_manager("READY=1");
  return RunService(*host);
}

int serve_this_machine(const std::string& socket) {
  OwnMachine machine({.driver_socket = socket, .names = microphone_names()});
  return serve(machine.seams(), ChainsInRealTime([&](int priority) { return machine.grant_real_time(priority); }),
               socket, [&] { machine.end_session(); });
}

/// A name by which the host knows microphones that beams can be made of.
constexpr const char* kBuiltInArray = "Microphone Array (デジタルマイク向けインテル® スマート・サウンド)";

/// An application records from the virtual microphone and another plays to the virtual speaker, all the time.
void run_applications(sim::SimDriver& driver) {
  const auto format = pcm_format(48000, 16, 2);
  driver.open_recorder(format, [](std::span<const std::byte>) {});
  driver.open_player(format, sim::memory_source({}));
}

int serve_simulated_notebook(const std::string& socket, const std::string& folder, bool stream) {
  sim::Config config;
  config.schedule = sim::Schedule::free;
  config.folder = folder;
  SimulatedNotebook notebook(socket, config);
  sim::SimMachine& simulation = notebook.simulation();
  simulation.endpoints().rename(sim::kMicArray, kBuiltInArray);
  if (stream) run_applications(simulation.driver());
  return serve(notebook.seams(), MakeChains, socket, [&] { simulation.session().query_end(); });
}

}  // namespace

int main(int count, char** arguments) {
  CLI::App app(
      "The background process of Sonivo: carries audio between \"Norvell Audio Relay\", which applications record "
      "from\n"
      "and play to, and this machine's microphones and speakers. It talks to the driver at the socket and runs until\n"
      "SIGTERM.\n\n"
      "Example: NorvellSonivoService --verbose",
      "NorvellSonivoService");
  std::string socket;
  std::string notebook;
  bool stream = false;
  bool verbose = false;
  app.add_option("--socket", socket, "of the driver (default: $XDG_RUNTIME_DIR/sonivo/driver.sock)");
  CLI::Option* simulate =
      app.add_option("--simulate", notebook,
                     "a notebook in real time instead of this machine, whose folders models, bitmaps and user lie in "
                     "this folder")
          ->type_name("FOLDER")
          ->check(CLI::ExistingDirectory);
  app.add_flag("--stream", stream, "with --simulate: one application records, another plays")->needs(simulate);
  app.add_flag("--verbose", verbose, "writes the traces to standard error");
  if (const auto code = parse_options(app, count, arguments)) return *code;
  if (socket.empty()) {
    const auto usual = driver::default_socket_path();
    if (!usual) {
      std::fprintf(stderr, "error: XDG_RUNTIME_DIR is not set; give --socket PATH\n");
      return 1;
    }
    socket = usual->string();
  }
  driver::LineLog log(STDERR_FILENO, "NorvellSonivoService", driver::monotonic_ms);
  std::optional<ScopedTraceSink> traces;
  if (verbose) {
    traces.emplace([](TraceLevel, std::string_view text) {
      std::fprintf(stderr, "%.*s", static_cast<int>(text.size()), text.data());
    });
  } else {
    traces.emplace([&log](TraceLevel, std::string_view text) { log.write(text); }, DebugSink{}, TraceLevel::notice);
  }
  block_end_signals();
  try {
    socket = std::filesystem::absolute(socket);
    if (const std::string fault = linux::path_fault(socket); !fault.empty()) throw std::runtime_error(fault);
    return simulate->empty() ? serve_this_machine(socket) : serve_simulated_notebook(socket, notebook, stream);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "error: %s\n", failure.what());
    return 1;
  }
}
