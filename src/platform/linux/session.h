#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/desktop_state.h"
#include "platform/linux/logind.h"
#include "platform/session.h"

namespace sonivo::linux {

/// Number of a session that logind names: "7" is 7, "c7" 7 with the highest bit.
std::uint32_t session_number(const std::string& id);

/// The session as logind tells it. It has the console while it is active; another session's number is never told, since
/// nothing of it is in reach.
class LogindSession final : public Session {
 public:
  explicit LogindSession(std::shared_ptr<DesktopState> desktop) : desktop_(std::move(desktop)) {}

  // Session
  bool process_session(std::uint32_t& session) override;
  std::uint32_t console_session() override;
  std::unique_ptr<Registration> notify(WindowHandle window) override;

  /// What logind says has changed; any thread.
  void set(const SessionState& state);
  /// The program shall end, as at the session's end: all windows are asked, and told the outcome once they have
  /// answered. A program that has none yet is asked when one of them registers.
  void end();

  /// Session of a process: that of logind, else this one for what else the user runs, else kNoSession.
  std::uint32_t of_process(pid_t process);

 private:
  class Notice;
  std::uint32_t own() const;
  bool has_console() const;
  void tell(std::uint64_t change);
  void ask_all();
  void answered(std::optional<std::int64_t> answer);

  const std::shared_ptr<DesktopState> desktop_;
  // Guarded by the desktop's mutex.
  SessionState state_;
  std::vector<Notice*> notices_;
  std::size_t unanswered_ = 0;
  bool all_agree_ = true;
  bool nobody_asked_ = false;  ///< about the end
};

}  // namespace sonivo::linux
