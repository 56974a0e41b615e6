#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace sonivo::tool {

/// What `sonivo events` is asked to do.
struct EventsOptions {
  std::string socket;
  bool json = false;
  std::optional<std::uint32_t> count;  ///< how many to print
};

/// Declares the command; parsing fills `options`, which must outlive it.
CLI::App* add_events_command(CLI::App& app, EventsOptions& options);

/// `sonivo events`: prints the driver's events as they come, until Ctrl-C, the driver's exit or `count` of them. Throws
/// Failure.
void run_events_command(const EventsOptions& options, std::ostream& output);

/// What the number of an event stands for.
std::string event_name(std::uint32_t command);

}  // namespace sonivo::tool
