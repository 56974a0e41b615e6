#include "apps/service/own_machine.h"

#include <utility>

namespace sonivo {

OwnMachine::OwnMachine(Options options)
    : real_time_({.user_bus = options.system.user_bus, .system_bus = options.system.logind.address}),
      threads_([this](int priority) { return real_time_.grant(priority); }),
      pacer_(threads_),
      connection_(options.audio_server),
      graph_(connection_, dispatcher_, std::move(options.names)),
      endpoints_(connection_, graph_, pacer_),
      control_(options.driver_socket),
      bus_(connection_, graph_, pacer_, control_),
      fx_properties_(control_),
      machine_({bus_, endpoints_, fx_properties_}, std::move(options.system)) {}

}  // namespace sonivo
