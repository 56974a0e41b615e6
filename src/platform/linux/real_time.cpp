#include "platform/linux/real_time.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "base/trace.h"
#include "platform/linux/bus.h"
#include "platform/linux/overrun_guard.h"

namespace sonivo::linux {
namespace {

/// Who schedules threads of others in real time; the portal does for programs that can't reach RealtimeKit.
struct Granter {
  BusKind bus;
  const char* name;
  const char* path;
  const char* interface;
  bool may_be_started;  ///< the portal starts with its session, and takes long to
};
constexpr Granter kPortal{BusKind::user, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                          "org.freedesktop.portal.Realtime", false};
constexpr Granter kRealtimeKit{BusKind::system, "org.freedesktop.RealtimeKit1", "/org/freedesktop/RealtimeKit1",
                               "org.freedesktop.RealtimeKit1", true};

constexpr std::uint64_t kLimitUs = 500'000;

bool make_real_time(sd_bus* bus, const Granter& granter, std::uint32_t priority, std::string& refusal) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(bus, &made, granter.name, granter.path, granter.interface,
                                     "MakeThreadRealtimeWithPID") < 0) {
    return false;
  }
  const BusMessage call(made);
  const auto process = static_cast<std::uint64_t>(::getpid());
  const auto thread = static_cast<std::uint64_t>(::gettid());
  BusError error;
  if (sd_bus_message_append(made, "ttu", process, thread, priority) < 0) return false;
  if (sd_bus_call(bus, made, kLimitUs, error.get(), nullptr) >= 0) return true;
  refusal = error.get()->message != nullptr ? error.get()->message : "";
  return false;
}

bool is_there(sd_bus* bus, const char* name) {
  BusError ignored;
  sd_bus_message* reply = nullptr;
  const int status = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                        "NameHasOwner", ignored.get(), &reply, "s", name);
  const BusMessage kept(reply);
  int owned = 0;
  return status >= 0 && sd_bus_message_read(reply, "b", &owned) >= 0 && owned != 0;
}

/// They grant it only to a process that has agreed to be ended when a thread computes for longer than this.
bool ask(const Granter& granter, const std::string& address, int priority, std::string& refusal) {
  const Bus bus = open_bus(granter.bus, address);
  if (!bus) return false;
  sd_bus_set_method_call_timeout(bus.get(), kLimitUs);
  if (!granter.may_be_started && !is_there(bus.get(), granter.name)) return false;
  std::int32_t most = 0;
  std::int64_t longest_us = 0;
  if (!get_property(bus.get(), granter.name, granter.path, granter.interface, "MaxRealtimePriority", 'i', &most) ||
      !get_property(bus.get(), granter.name, granter.path, granter.interface, "RTTimeUSecMax", 'x', &longest_us) ||
      most < 1 || longest_us < 1) {
    return false;
  }
  if (!limit_real_time(static_cast<std::uint64_t>(longest_us))) return false;
  return make_real_time(bus.get(), granter, static_cast<std::uint32_t>(std::min(priority, most)), refusal);
}

}  // namespace

bool RealTime::set_real_time(int priority) {
  sched_param parameters{};
  parameters.sched_priority = priority;
  return ::pthread_setschedparam(::pthread_self(), SCHED_RR, &parameters) == 0;
}

bool RealTime::grant(int priority, std::string& refusal) {
  refusal.clear();
  if (ask(kPortal, options_.user_bus, priority, refusal) || ask(kRealtimeKit, options_.system_bus, priority, refusal) ||
      options_.own_limits(priority)) {
    guard_this_thread();
    return true;
  }
  if (!refused_.exchange(true)) {
    trace(TraceLevel::notice, "no real-time scheduling is granted: audio runs at ordinary priority\n");
  }
  return false;
}

}  // namespace sonivo::linux
