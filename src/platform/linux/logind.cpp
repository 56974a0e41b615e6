#include "platform/linux/logind.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/trace.h"
#include "platform/linux/bus.h"

namespace sonivo::linux {
namespace {

constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kManagerPath = "/org/freedesktop/login1";
constexpr const char* kManager = "org.freedesktop.login1.Manager";
constexpr const char* kSession = "org.freedesktop.login1.Session";
constexpr const char* kUser = "org.freedesktop.login1.User";
constexpr std::chrono::milliseconds kLongestRetry{8000};

using Time = std::chrono::steady_clock::time_point;

/// For poll; -1: for ever.
int milliseconds_left(std::optional<Time> end) {
  if (!end) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end - std::chrono::steady_clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT32_MAX));
}

/// The bus tells its time in microseconds of the same clock.
std::optional<Time> bus_deadline(sd_bus* bus) {
  std::uint64_t us = UINT64_MAX;
  if (sd_bus_get_timeout(bus, &us) < 0 || us == UINT64_MAX) return std::nullopt;
  return Time(std::chrono::microseconds(us));
}

std::optional<Time> sooner(std::optional<Time> a, std::optional<Time> b) {
  if (!a || !b) return a ? a : b;
  return std::min(*a, *b);
}

/// One bus, as long as it holds.
struct Connection {
  Bus bus;
  std::vector<BusSlot> matches;          ///< of the manager
  std::vector<BusSlot> session_matches;  ///< of the session followed
};

}  // namespace

LogindOptions usual_logind() {
  LogindOptions options;
  if (const char* const session = std::getenv("XDG_SESSION_ID")) options.session = session;
  return options;
}

class Logind::Follower {
 public:
  Follower(LogindOptions options, LogindEvents events)
      : options_(std::move(options)),
        events_(std::move(events)),
        stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        thread_([this] { run(); }) {
    first_told_.get_future().wait();
  }
  ~Follower() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(stop_.number(), &one, sizeof one);
    thread_.join();
  }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

 private:
  // ---- The thread

  void run() {
    for (auto retry = options_.first_retry;; retry = std::min(2 * retry, kLongestRetry)) {
      connection_.bus = open_bus(BusKind::system, options_.address);
      if (connection_.bus && watch_manager()) {
        if (serve()) return;
        retry = options_.first_retry;
      }
      connection_ = {};
      delay_.reset();
      tell_first();
      if (wait_for({}, std::chrono::steady_clock::now() + retry)) return;
    }
  }

  /// True when the program ends, false when the bus does.
  bool serve() {
    sd_bus* const bus = connection_.bus.get();
    stale_ = true;
    for (;;) {
      if (std::exchange(stale_, false)) meet_logind();
      tell_first();
      const int status = sd_bus_process(bus, nullptr);
      if (status < 0) return false;
      if (status > 0) continue;
      const pollfd polled{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0};
      if (wait_for(polled, sooner(bus_deadline(bus), delay_end_))) return true;
      if (delay_end_ && std::chrono::steady_clock::now() >= *delay_end_) end_delay();
    }
  }

  /// True when the program ends.
  bool wait_for(std::optional<pollfd> polled, std::optional<Time> end) {
    std::array<pollfd, 2> all{pollfd{stop_.number(), POLLIN, 0}, polled.value_or(pollfd{-1, 0, 0})};
    return ::poll(all.data(), all.size(), milliseconds_left(end)) > 0 && all[0].revents != 0;
  }

  void tell_first() {
    if (std::exchange(started_, true)) return;
    if (!state_.logind) trace(TraceLevel::notice, "there is no logind: the session counts as the active one\n");
    events_.changed(state_);
    first_told_.set_value();
  }

  void tell(const SessionState& state) {
    if (state == state_) return;
    state_ = state;
    if (started_) events_.changed(state_);
  }

  // ---- What logind is asked

  bool watch(std::vector<BusSlot>& slots, const char* sender, const char* path, const char* interface,
             const char* member, sd_bus_message_handler_t handler) {
    sd_bus_slot* slot = nullptr;
    const int status =
        sd_bus_match_signal(connection_.bus.get(), &slot, sender, path, interface, member, handler, this);
    slots.emplace_back(slot);
    return status >= 0;
  }

  bool watch_manager() {
    auto& slots = connection_.matches;
    return watch(slots, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                 on_owner) &&
           watch(slots, kLogind, kManagerPath, kManager, "SessionNew", on_sessions) &&
           watch(slots, kLogind, kManagerPath, kManager, "SessionRemoved", on_sessions) &&
           watch(slots, kLogind, kManagerPath, kManager, "PrepareForSleep", on_sleep);
  }

  /// The path of an object that a method of the manager answers; empty when it has none.
  template <class Argument>
  std::string object_of(const char* method, const char* type, Argument argument) {
    BusError ignored;
    sd_bus_message* reply = nullptr;
    const int status = sd_bus_call_method(connection_.bus.get(), kLogind, kManagerPath, kManager, method, ignored.get(),
                                          &reply, type, argument);
    const BusMessage kept(reply);
    const char* path = nullptr;
    return status >= 0 && sd_bus_message_read(reply, "o", &path) >= 0 ? path : "";
  }

  /// The session that the user sees.
  std::string display_session() {
    const std::string user = object_of("GetUser", "u", static_cast<std::uint32_t>(::getuid()));
    if (user.empty()) return {};
    BusError ignored;
    sd_bus_message* reply = nullptr;
    const int status = sd_bus_get_property(connection_.bus.get(), kLogind, user.c_str(), kUser, "Display",
                                           ignored.get(), &reply, "(so)");
    const BusMessage kept(reply);
    const char* id = nullptr;
    const char* path = nullptr;
    const bool read = status >= 0 && sd_bus_message_read(reply, "(so)", &id, &path) >= 0;
    return read && *id != '\0' ? path : "";
  }

  std::string find_session() {
    std::string path;
    if (!options_.session.empty()) path = object_of("GetSession", "s", options_.session.c_str());
    if (path.empty()) path = object_of("GetSessionByPID", "u", static_cast<std::uint32_t>(::getpid()));
    return path.empty() ? display_session() : path;
  }

  bool read_flag(const std::string& path, const char* property, bool otherwise) {
    int value = 0;
    return get_property(connection_.bus.get(), kLogind, path, kSession, property, 'b', &value) ? value != 0 : otherwise;
  }

  std::string read_id(const std::string& path) {
    BusError ignored;
    char* id = nullptr;
    if (sd_bus_get_property_string(connection_.bus.get(), kLogind, path.c_str(), kSession, "Id", ignored.get(), &id) <
        0) {
      return {};
    }
    const std::unique_ptr<char, void (*)(void*)> kept(id, std::free);
    return id;
  }

  /// Logind is new, or its sessions are others.
  void meet_logind() {
    int sleeps = 0;
    const bool present =
        get_property(connection_.bus.get(), kLogind, kManagerPath, kManager, "PreparingForSleep", 'b', &sleeps);
    if (!present) return;
    if (!delay_ && sleeps == 0) take_delay();
    follow(find_session());
  }

  void follow(const std::string& path) {
    auto& slots = connection_.session_matches;
    slots.clear();
    SessionState state{.logind = true, .active = false};
    if (path.empty()) {
      if (!state_.logind || !state_.id.empty()) trace(TraceLevel::notice, "logind knows no session of this user\n");
      return tell(state);
    }
    watch(slots, kLogind, path.c_str(), kSession, "Lock", on_lock);
    watch(slots, kLogind, path.c_str(), kSession, "Unlock", on_unlock);
    watch(slots, kLogind, path.c_str(), "org.freedesktop.DBus.Properties", "PropertiesChanged", on_properties);
    state.id = read_id(path);
    state.active = read_flag(path, "Active", false);
    state.locked = read_flag(path, "LockedHint", false);
    state.idle = read_flag(path, "IdleHint", false);
    tell(state);
  }

  void take_delay() {
    BusError ignored;
    sd_bus_message* reply = nullptr;
    const int status =
        sd_bus_call_method(connection_.bus.get(), kLogind, kManagerPath, kManager, "Inhibit", ignored.get(), &reply,
                           "ssss", "sleep", "Sonivo", "The microphone and the settings are put in order", "delay");
    const BusMessage kept(reply);
    int lock = -1;
    if (status < 0 || sd_bus_message_read(reply, "h", &lock) < 0) {
      trace(TraceLevel::notice, "logind grants no delay of the machine's sleep\n");
      return;
    }
    delay_ = std::make_shared<SleepDelay>(Descriptor(::fcntl(lock, F_DUPFD_CLOEXEC, 3)));
  }

  void end_delay() {
    delay_end_.reset();
    if (const auto held = handed_out_.lock()) {
      trace(TraceLevel::warning, "the machine's sleep waits no longer\n");
      held->let_go();
    }
  }

  // ---- What logind signals

  static Follower& of(void* self) { return *static_cast<Follower*>(self); }

  static int on_owner(sd_bus_message* message, void* self, sd_bus_error*) {
    const char *name = nullptr, *before = nullptr, *after = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &before, &after) < 0 || name != std::string_view(kLogind)) return 0;
    of(self).delay_.reset();  // the one that went knew of it
    of(self).stale_ = *after != '\0';
    return 0;
  }

  static int on_sessions(sd_bus_message*, void* self, sd_bus_error*) {
    of(self).stale_ = true;
    return 0;
  }

  static int on_lock(sd_bus_message*, void* self, sd_bus_error*) { return of(self).set_locked(true); }
  static int on_unlock(sd_bus_message*, void* self, sd_bus_error*) { return of(self).set_locked(false); }

  int set_locked(bool locked) {
    SessionState state = state_;
    state.locked = locked;
    tell(state);
    return 0;
  }

  static int on_properties(sd_bus_message* message, void* self, sd_bus_error*) {
    const char* interface = nullptr;
    if (sd_bus_message_read(message, "s", &interface) < 0 || interface != std::string_view(kSession)) return 0;
    SessionState state = of(self).state_;
    if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) return 0;
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
      const char* name = nullptr;
      if (sd_bus_message_read(message, "s", &name) < 0) return 0;
      bool* const known = flag(state, name);
      int value = 0;
      if (known == nullptr ? sd_bus_message_skip(message, "v") < 0
                           : sd_bus_message_read(message, "v", "b", &value) < 0) {
        return 0;
      }
      if (known != nullptr) *known = value != 0;
      sd_bus_message_exit_container(message);
    }
    of(self).tell(state);
    return 0;
  }

  static bool* flag(SessionState& state, std::string_view property) {
    if (property == "Active") return &state.active;
    if (property == "LockedHint") return &state.locked;
    if (property == "IdleHint") return &state.idle;
    return nullptr;
  }

  static int on_sleep(sd_bus_message* message, void* self, sd_bus_error*) {
    int sleeps = 0;
    if (sd_bus_message_read(message, "b", &sleeps) < 0) return 0;
    sleeps != 0 ? of(self).suspend() : of(self).resume();
    return 0;
  }

  void suspend() {
    auto delay = delay_ ? std::exchange(delay_, nullptr) : std::make_shared<SleepDelay>(Descriptor());
    handed_out_ = delay;
    delay_end_ = std::chrono::steady_clock::now() + options_.longest_delay;
    events_.suspends(std::move(delay));
  }

  void resume() {
    delay_end_.reset();
    if (!delay_) take_delay();
    events_.resumed();
  }

  const LogindOptions options_;
  const LogindEvents events_;
  const Descriptor stop_;
  std::promise<void> first_told_;
  // Of the thread.
  bool started_ = false;  ///< the first state has been told
  bool stale_ = false;    ///< the session has to be looked up
  SessionState state_;
  std::shared_ptr<SleepDelay> delay_;  ///< taken for the next sleep
  std::weak_ptr<SleepDelay> handed_out_;
  std::optional<Time> delay_end_;
  Connection connection_;
  std::thread thread_;
};

Logind::Logind(LogindOptions options, LogindEvents events)
    : follower_(std::make_unique<Follower>(std::move(options), std::move(events))) {}

Logind::~Logind() = default;

}  // namespace sonivo::linux
