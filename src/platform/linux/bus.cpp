#include "platform/linux/bus.h"

#include <cstdint>

namespace sonivo::linux {
namespace {

constexpr std::uint64_t kCallLimitUs = 2'000'000;

int open_at(const std::string& address, sd_bus** opened) {
  int status = sd_bus_new(opened);
  if (status >= 0) status = sd_bus_set_address(*opened, address.c_str());
  if (status >= 0) status = sd_bus_set_bus_client(*opened, 1);
  if (status >= 0) status = sd_bus_start(*opened);
  return status;
}

int open_own(BusKind kind, sd_bus** opened) {
  return kind == BusKind::system ? sd_bus_open_system(opened) : sd_bus_open_user(opened);
}

}  // namespace

Bus open_bus(BusKind kind, const std::string& address) {
  sd_bus* opened = nullptr;
  const int status = address.empty() ? open_own(kind, &opened) : open_at(address, &opened);
  Bus bus(opened);
  if (status < 0) return nullptr;
  sd_bus_set_method_call_timeout(bus.get(), kCallLimitUs);
  return bus;
}

bool send_call(sd_bus* bus, const char* name, const char* path, const char* interface, const char* method) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(bus, &made, name, path, interface, method) < 0) return false;
  const BusMessage call(made);
  return sd_bus_message_set_expect_reply(made, 0) >= 0 && sd_bus_send(bus, made, nullptr) >= 0 &&
         sd_bus_flush(bus) >= 0;
}

bool get_property(sd_bus* bus, const char* name, const std::string& path, const char* interface, const char* property,
                  char type, void* value) {
  BusError ignored;
  return sd_bus_get_property_trivial(bus, name, path.c_str(), interface, property, ignored.get(), type, value) >= 0;
}

}  // namespace sonivo::linux
