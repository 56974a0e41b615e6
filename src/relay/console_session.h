#pragma once

#include <cstdint>

#include "platform/machine.h"

namespace sonivo {

/// Whether this process belongs to the session on the console; unknown when the machine can't tell to which it belongs.
enum class SessionState { unknown, inactive, active };
inline SessionState ConsoleSession(const Machine& machine) {
  std::uint32_t session = 0;
  if (!machine.session.process_session(session)) return SessionState::unknown;
  return session == machine.session.console_session() ? SessionState::active : SessionState::inactive;
}

}  // namespace sonivo
