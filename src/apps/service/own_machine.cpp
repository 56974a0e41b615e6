#include "apps/service/own_machine.h"

#include <cstdint>
#include <utility>

namespace sonivo {
namespace {

/// A session that begins has its service before its sound cards. The host looks at its microphone when it starts, and
/// what it finds then holds for long.
constexpr std::uint32_t kMicrophoneLimitMs = 5000;

}  // namespace

OwnMachine::OwnMachine(Options options)
    : real_time_({.user_bus = options.system.user_bus, .system_bus = options.system.logind.address}),
      threads_([this](int priority) { return real_time_.grant(priority); }),
      audio_(threads_, options.names, options.audio_server),
      headphones_(threads_, options.driver_socket),
      headphone_watch_(audio_.connection, [this](bool plugged) { headphones_.tell(plugged); }),
      control_(options.driver_socket),
      bus_(audio_.connection, audio_.graph, audio_.pacer, control_),
      fx_properties_(control_),
      machine_({bus_, audio_.endpoints, fx_properties_}, threads_, std::move(options.system)) {
  audio_.graph.wait_for_default(DataFlow::capture, kMicrophoneLimitMs);
}

}  // namespace sonivo
