#include "platform/sim/session.h"

#include "platform/window_messages.h"

namespace sonivo::sim {

class SimSession::Notice final : public Registration {
 public:
  // With the mutex held.
  Notice(SimSession& session, WindowHandle its_window) : window(its_window), session_(session) {
    session_.notices_.push_back(this);
  }
  ~Notice() override {
    session_.desktop_.script.enter(Step::session_unregister);
    std::scoped_lock lock(session_.desktop_.scheduler.mutex());
    std::erase(session_.notices_, this);
  }

  const WindowHandle window;

 private:
  SimSession& session_;
};

bool SimSession::process_session(std::uint32_t& session) {
  if (desktop_.script.enter(Step::process_session)) return false;
  session = process_;
  return true;
}

std::uint32_t SimSession::console_session() {
  if (desktop_.script.enter(Step::console_session)) return kNoSession;
  return console_;
}

std::unique_ptr<Registration> SimSession::notify(WindowHandle window) {
  if (desktop_.script.enter(Step::session_register)) return nullptr;
  std::scoped_lock lock(desktop_.scheduler.mutex());
  if (desktop_.windows.find(window) == nullptr) return nullptr;
  return std::make_unique<Notice>(*this, window);
}

void SimSession::set_console_session(std::uint32_t session) {
  const bool had_console = console_.exchange(session) == process_;
  const bool has_console = session == process_;
  if (had_console != has_console) tell(has_console ? kSessionConsoleConnect : kSessionConsoleDisconnect);
}

void SimSession::query_end() {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  all_agree_ = true;
  end_agreed_.reset();
  unanswered_ =
      desktop_.send_to_all(kWmQueryEndSession, 0, [this](std::optional<std::int64_t> answer) { end_answered(answer); });
}

void SimSession::end_answered(std::optional<std::int64_t> answer) {
  if (answer == 0) all_agree_ = false;
  if (--unanswered_ != 0) return;
  end_agreed_ = all_agree_;
  desktop_.send_to_all(kWmEndSession, all_agree_ ? 1 : 0);
}

std::optional<bool> SimSession::end_agreed() const {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  return end_agreed_;
}

std::size_t SimSession::registrations() const {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  return notices_.size();
}

void SimSession::tell(std::uint64_t change) {
  std::scoped_lock lock(desktop_.scheduler.mutex());
  for (const Notice* notice : notices_) {
    desktop_.post({.window = notice->window,
                   .message = kWmSessionChange,
                   .wParam = change,
                   .lParam = static_cast<std::int64_t>(process_.load())});
  }
}

}  // namespace sonivo::sim
