#include "platform/linux/screen_saver.h"

#include "platform/linux/bus.h"

namespace sonivo::linux {

bool simulate_user_activity(const std::string& address) {
  const Bus bus = open_bus(BusKind::user, address);
  return bus && send_call(bus.get(), "org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver",
                          "org.freedesktop.ScreenSaver", "SimulateUserActivity");
}

}  // namespace sonivo::linux
