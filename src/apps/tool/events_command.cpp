#include "apps/tool/events_command.h"

#include <CLI/CLI.hpp>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "apps/tool/driver_connection.h"
#include "apps/tool/failure.h"
#include "apps/tool/numbers.h"
#include "platform/control_requests.h"

namespace sonivo::tool {

namespace {

std::atomic<Event*> interrupted{nullptr};
static_assert(std::atomic<Event*>::is_always_lock_free);

extern "C" void note_interrupt(int) {
  if (Event* const event = interrupted) event->set();  // writes a count to a descriptor, nothing more
}

/// While it lives, Ctrl-C sets an event instead of ending the program, unless the caller of the program ignores it.
class InterruptNote {
 public:
  explicit InterruptNote(Event& event) {
    interrupted = &event;
    previous_ = std::signal(SIGINT, note_interrupt);
    if (previous_ == SIG_IGN) std::signal(SIGINT, SIG_IGN);
  }
  ~InterruptNote() {
    std::signal(SIGINT, previous_);
    interrupted = nullptr;
  }
  InterruptNote(const InterruptNote&) = delete;
  InterruptNote& operator=(const InterruptNote&) = delete;

 private:
  void (*previous_)(int) = SIG_DFL;
};

/// "2026-01-31T12:00:00.250Z", or the local time without letters.
std::string time_text(std::chrono::system_clock::time_point time, bool universal) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = ms / 1000;
  std::tm parts{};
  universal ? ::gmtime_r(&seconds, &parts) : ::localtime_r(&seconds, &parts);
  std::array<char, 40> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), universal ? "%FT%T" : "%F %T", &parts);
  std::snprintf(text.data() + length, text.size() - length, ".%03d%s", static_cast<int>(ms % 1000),
                universal ? "Z" : "");
  return text.data();
}

void print_event(std::ostream& output, bool json, std::uint32_t command) {
  const auto now = std::chrono::system_clock::now();
  if (json) {
    const nlohmann::ordered_json event{
        {"time", time_text(now, true)}, {"event", command}, {"name", event_name(command)}};
    output << event.dump() << std::endl;
  } else {
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "%4u", command);
    output << time_text(now, false) << ' ' << number.data() << "  " << event_name(command) << std::endl;
  }
  if (!output) throw Failure("cannot write the events to standard output; direct it somewhere else");
}

std::uint32_t parse_count(const std::string& text) {
  const auto count = parse_whole_number(text);
  if (!count || *count == 0) throw UsageError("--count takes a whole number above 0, not '" + text + "'");
  return *count;
}

}  // namespace

std::string event_name(std::uint32_t command) {
  switch (command) {
    case control::kPlayerIsOn:
      return "player on";
    case control::kPlayerIsOff:
      return "player off";
    case control::kMonitorWake:
      return "wake the display";
    case control::NSVDRV_CMD_AUTOMUTE_ON:
      return "auto mute on";
    case control::NSVDRV_CMD_AUTOMUTE_OFF:
      return "auto mute off";
    case control::NSVDRV_CMD_DEV_MIC:
      return "capture endpoint changed";
    case control::NSVDRV_CMD_DEV_SPK:
      return "render endpoint changed";
    case control::kNothing:
      return "nothing";
    case control::NSVPLAY_CMD_EXIT:
      return "driver exits";
    default:
      return "unknown";
  }
}

CLI::App* add_events_command(CLI::App& app, EventsOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "events",
      "Prints the driver's events as they come: time, number and name. Takes them from nobody else.\n"
      "Ends with Ctrl-C, when the driver exits, or after --count of them.");
  command->footer("Example:\n  sonivo events --json --count 1\n");
  add_socket_option(*command, options.socket);
  add_json_option(*command, options.json);
  command
      ->add_option_function<std::string>(
          "--count", [&options](const std::string& text) { options.count = parse_count(text); },
          "how many events to wait for (default: no end)")
      ->type_name("N");
  return command;
}

void run_events_command(const EventsOptions& options, std::ostream& output) {
  DriverConnection driver(options.socket);
  driver.number(*control::find_setting("generation"));  // a driver that doesn't answer is found out now
  const auto quit = driver.events().create(Reset::manual);
  if (!quit) throw Failure("there are no file descriptors left; close something");
  const InterruptNote note(*quit);
  for (std::uint32_t printed = 0; !options.count || printed < *options.count; ++printed) {
    control::EventRecord record;
    if (!driver.wait_for(control::NSV_OBSERVE_EVENTS, std::as_writable_bytes(std::span(&record, 1)), *quit)) return;
    print_event(output, options.json, record.command);
    if (record.command == control::NSVPLAY_CMD_EXIT) return;
  }
}

}  // namespace sonivo::tool
