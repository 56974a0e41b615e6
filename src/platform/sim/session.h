#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/session.h"
#include "platform/sim/desktop_model.h"

namespace sonivo::sim {

/// One signed-in session, on the console unless set otherwise.
class SimSession final : public Session {
 public:
  explicit SimSession(DesktopModel& desktop) : desktop_(desktop) {}

  // Session
  bool process_session(std::uint32_t& session) override;
  std::uint32_t console_session() override;
  std::unique_ptr<Registration> notify(WindowHandle window) override;

  // What happens
  /// Before any notification is asked for.
  void set_process_session(std::uint32_t session) { process_ = session; }
  /// Another session gets the console.
  void set_console_session(std::uint32_t session);
  void lock() { tell(kSessionLock); }
  void unlock() { tell(kSessionUnlock); }
  /// The user signs out: all windows are asked, and told the outcome once they have answered.
  void query_end();

  // Observations
  /// Whether all windows agreed to the end of the session; nothing while one hasn't answered.
  std::optional<bool> end_agreed() const;
  std::size_t registrations() const;
  /// The session of the program.
  std::uint32_t own() const { return process_; }

 private:
  class Notice;
  void tell(std::uint64_t change);
  void end_answered(std::optional<std::int64_t> answer);

  DesktopModel& desktop_;
  std::atomic<std::uint32_t> process_ = 1;
  std::atomic<std::uint32_t> console_ = 1;
  std::vector<Notice*> notices_;
  std::size_t unanswered_ = 0;
  bool all_agree_ = true;
  std::optional<bool> end_agreed_;
};

}  // namespace sonivo::sim
