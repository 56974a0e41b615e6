#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/control_store.h"
#include "platform/device.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/events.h"

namespace CLI {
class App;
}

namespace sonivo::tool {

/// Declares `--socket PATH` of a command that talks to the driver. Parsing fills `path`, which must outlive it.
void add_socket_option(CLI::App& command, std::string& path);

/// Declares `--json`. Parsing fills `json`, which must outlive it.
void add_json_option(CLI::App& command, bool& json);

/// Where the driver listens: the path that an option gave, else the usual one. Throws Failure when there is none.
std::string driver_socket(const std::string& given);

/// Why the driver refuses, in words that say what to do where there is something; "error N" for what is no cause of
/// its.
std::string refusal_text(Error error);

/// A connection to the driver of this user. Its requests throw Failure, in words that say what to do, when the driver
/// is gone or doesn't answer within two seconds.
class DriverConnection {
 public:
  /// `given`: as of driver_socket(). Throws Failure when nobody listens there.
  explicit DriverConnection(const std::string& given);

  const std::string& path() const { return path_; }
  Events& events() { return events_; }

  /// What the driver answers: error::kNone, with the bytes of output in `transferred`, or its refusal.
  Error request(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                std::uint32_t& transferred);

  /// A request without input that waits for as long as it takes, or until `quit` fires: false then. Throws Failure when
  /// the driver refuses it.
  bool wait_for(std::uint32_t code, std::span<std::byte> output, Event& quit);

  /// Throw Failure when the driver refuses.
  std::uint32_t number(const control::Setting& setting);
  std::u16string text(const control::Setting& setting);
  void set_number(std::uint32_t code, std::uint32_t value, const std::string& name);
  void set_text(std::uint32_t code, std::u16string_view value, const std::string& name);
  /// All values.
  control::Store settings();
  /// What the service tells of itself, in JSON; empty while there is none.
  std::string report();

 private:
  struct Outcome {
    Error error = error::kNone;
    std::uint32_t transferred = 0;
  };
  Outcome finish(Overlapped& request);
  void get(const control::Setting& setting, std::span<std::byte> output);
  void set(std::uint32_t code, std::span<const std::byte> input, const std::string& name);

  std::string path_;
  linux::DescriptorEvents events_;
  std::unique_ptr<Event> done_;
  linux::ControlBus bus_;
  std::shared_ptr<Device> device_;
};

}  // namespace sonivo::tool
