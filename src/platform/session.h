#pragma once

#include <cstdint>
#include <memory>

#include "platform/message.h"
#include "platform/registration.h"

namespace sonivo {

// Changes of a session, wParam of kWmSessionChange.
inline constexpr std::uint64_t kSessionConsoleConnect = 1;
inline constexpr std::uint64_t kSessionConsoleDisconnect = 2;
inline constexpr std::uint64_t kSessionLock = 7;
inline constexpr std::uint64_t kSessionUnlock = 8;

/// What console_session answers while no session has the console.
inline constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

/// The sign-in session of the program. Any thread.
///
/// At the session's end every window of the program is sent kWmQueryEndSession, and kWmEndSession once all have
/// answered.
class Session {
 public:
  virtual ~Session() = default;
  /// Session that this process belongs to; false when the machine can't tell.
  virtual bool process_session(std::uint32_t& session) = 0;
  /// Session on the physical console.
  virtual std::uint32_t console_session() = 0;
  /// Posts kWmSessionChange to the window at each change of this process's session. Null when refused.
  virtual std::unique_ptr<Registration> notify(WindowHandle window) = 0;
};

}  // namespace sonivo
