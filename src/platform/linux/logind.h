#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/sleep_delay.h"

namespace sonivo::linux {

/// What logind says of the program's session. A machine without it has one session, which is active; what was said last
/// holds while logind is away for a moment.
struct SessionState {
  bool logind = false;  ///< it has answered
  std::string id = {};  ///< empty: the program belongs to none
  bool active = true;   ///< in the foreground of its seat
  bool locked = false;
  bool idle = false;  ///< nobody has used it for a while

  friend bool operator==(const SessionState&, const SessionState&) = default;
};

/// Called on the thread of the bus, one at a time.
struct LogindEvents {
  std::function<void(const SessionState&)> changed;
  /// The machine is about to sleep, and waits a while for those who hold the delay.
  std::function<void(std::shared_ptr<SleepDelay>)> suspends;
  std::function<void()> resumed;
};

struct LogindOptions {
  std::string address = {};  ///< of the bus; empty: the system's
  /// Of the session to follow; empty or unknown: that of the process, else the one that its user sees.
  std::string session = {};
  std::chrono::milliseconds longest_delay{3000};  ///< of a sleep
  std::chrono::milliseconds first_retry{250};     ///< of a connection; each later one waits twice as long, up to 8 s
};
/// The session that the environment names.
LogindOptions usual_logind();

/// Follows logind over a connection of its own, for as long as it lives. Where the bus or logind goes away, it waits
/// for them to come back.
class Logind {
 public:
  /// Comes back once the first state has been told.
  Logind(LogindOptions options, LogindEvents events);
  ~Logind();

 private:
  class Follower;
  const std::unique_ptr<Follower> follower_;
};

}  // namespace sonivo::linux
