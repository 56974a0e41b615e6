#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace sonivo::linux {

struct BusDeleter {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using BusMessage = std::unique_ptr<sd_bus_message, BusDeleter>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusDeleter>;

/// Why a call failed.
class BusError {
 public:
  BusError() = default;
  ~BusError() { sd_bus_error_free(&error_); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;

  sd_bus_error* get() { return &error_; }

 private:
  sd_bus_error error_{};
};

/// The machine's own busses, or the one at an address instead.
enum class BusKind { system, user };

/// A connection, null when there is no such bus. A call over it that isn't answered in time fails.
Bus open_bus(BusKind kind, const std::string& address = {});

/// Sends a call that nobody answers; false when it can't be sent.
bool send_call(sd_bus* bus, const char* name, const char* path, const char* interface, const char* method);

/// A property of the simple type `type`, as sd_bus_get_property_trivial writes it; false when it can't be had.
bool get_property(sd_bus* bus, const char* name, const std::string& path, const char* interface, const char* property,
                  char type, void* value);

}  // namespace sonivo::linux
