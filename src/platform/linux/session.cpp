#include "platform/linux/session.h"

#include <sys/stat.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <mutex>

#include "platform/window_messages.h"

namespace sonivo::linux {
namespace {

constexpr std::uint32_t kOnlySession = 1;
constexpr std::uint32_t kOutsideOfSessions = 0;
constexpr std::uint32_t kLettered = 0x80000000;

}  // namespace

std::uint32_t session_number(const std::string& id) {
  const bool lettered = !id.empty() && (id[0] < '0' || id[0] > '9');
  std::uint32_t number = 0;
  std::from_chars(id.data() + (lettered ? 1 : 0), id.data() + id.size(), number);
  return lettered ? number | kLettered : number;
}

class LogindSession::Notice final : public Registration {
 public:
  // With the mutex held.
  Notice(LogindSession& session, WindowHandle its_window) : window(its_window), session_(session) {
    session_.notices_.push_back(this);
  }
  ~Notice() override {
    const std::scoped_lock lock(session_.desktop_->mutex);
    std::erase(session_.notices_, this);
  }

  const WindowHandle window;

 private:
  LogindSession& session_;
};

std::uint32_t LogindSession::own() const {
  if (!state_.logind) return kOnlySession;
  return state_.id.empty() ? kNoSession : session_number(state_.id);
}

bool LogindSession::has_console() const { return own() != kNoSession && state_.active; }

bool LogindSession::process_session(std::uint32_t& session) {
  const std::scoped_lock lock(desktop_->mutex);
  session = own() != kNoSession ? own() : kOutsideOfSessions;
  return true;
}

std::uint32_t LogindSession::console_session() {
  const std::scoped_lock lock(desktop_->mutex);
  return has_console() ? own() : kNoSession;
}

std::unique_ptr<Registration> LogindSession::notify(WindowHandle window) {
  const std::scoped_lock lock(desktop_->mutex);
  if (desktop_->ours(window) == nullptr) return nullptr;
  if (nobody_asked_) ask_all();
  return std::make_unique<Notice>(*this, window);
}

void LogindSession::set(const SessionState& state) {
  const std::scoped_lock lock(desktop_->mutex);
  const bool had_console = has_console();
  const bool was_locked = state_.locked;
  state_ = state;
  if (has_console() != had_console) tell(has_console() ? kSessionConsoleConnect : kSessionConsoleDisconnect);
  if (state_.locked != was_locked) tell(state_.locked ? kSessionLock : kSessionUnlock);
}

void LogindSession::tell(std::uint64_t change) {
  for (const Notice* const notice : notices_) {
    desktop_->post({.window = notice->window,
                    .message = kWmSessionChange,
                    .wParam = change,
                    .lParam = static_cast<std::int64_t>(own())});
  }
}

void LogindSession::end() {
  const std::scoped_lock lock(desktop_->mutex);
  ask_all();
}

void LogindSession::ask_all() {
  all_agree_ = true;
  unanswered_ = desktop_->send_to_all(kWmQueryEndSession, 0, [this](auto answer) { answered(answer); });
  nobody_asked_ = unanswered_ == 0;
}

void LogindSession::answered(std::optional<std::int64_t> answer) {
  if (answer == 0) all_agree_ = false;
  if (--unanswered_ == 0) desktop_->send_to_all(kWmEndSession, all_agree_ ? 1 : 0);
}

// What the user's service manager runs is in no session.
std::uint32_t LogindSession::of_process(pid_t process) {
  char* id = nullptr;
  if (sd_pid_get_session(process, &id) >= 0) {
    const std::unique_ptr<char, void (*)(void*)> kept(id, std::free);
    return session_number(id);
  }
  struct stat its {};
  if (::stat(("/proc/" + std::to_string(process)).c_str(), &its) != 0 || its.st_uid != ::getuid()) return kNoSession;
  const std::scoped_lock lock(desktop_->mutex);
  return own();
}

}  // namespace sonivo::linux
