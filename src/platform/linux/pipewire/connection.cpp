#include "platform/linux/pipewire/connection.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "base/trace.h"

namespace sonivo::pipewire {
namespace {

constexpr std::uint64_t kFirstRetryMs = 50;
constexpr std::uint64_t kLastRetryMs = 500;

}  // namespace

Connection::Connection(const std::string& remote) : remote_(remote) {
  pw_init(nullptr, nullptr);
  loop_ = pw_thread_loop_new("audio loop", nullptr);
  if (loop_ == nullptr) throw std::runtime_error("no loop for the audio server's client");
  pw_loop* const loop = pw_thread_loop_get_loop(loop_);
  // That configuration gives the data thread real-time scheduling where the session grants it.
  context_ = pw_context_new(loop, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
  retry_ = pw_loop_add_timer(
      loop, [](void* self, std::uint64_t) { static_cast<Connection*>(self)->connect(); }, this);
  lost_ = pw_loop_add_event(
      loop, [](void* self, std::uint64_t) { static_cast<Connection*>(self)->lose(); }, this);
  if (context_ == nullptr || pw_thread_loop_start(loop_) != 0) {
    throw std::runtime_error("the audio server's client can't be set up");
  }
  const Lock lock(*this);
  connect();
}

Connection::~Connection() {
  pw_thread_loop_stop(loop_);
  close(asker_);
  close(bearer_);
  pw_context_destroy(context_);
  pw_thread_loop_destroy(loop_);
  pw_deinit();
}

void Connection::add(User& user) {
  users_.push_back(&user);
  if (core() != nullptr) user.connected(*core());
}

void Connection::remove(User& user) { std::erase(users_, &user); }

pw_core* Connection::connect_once() {
  pw_properties* const properties = pw_properties_new(
      PW_KEY_APP_NAME, "Sonivo", PW_KEY_APP_ID, "sonivo", PW_KEY_APP_ICON_NAME, "audio-input-microphone",
      PW_KEY_REMOTE_NAME, remote_.empty() ? nullptr : remote_.c_str(), nullptr);
  return pw_context_connect(context_, properties, 0);
}

pw_core* Connection::connect_beside() { return core() != nullptr ? connect_once() : nullptr; }

bool Connection::open(Client& client) {
  static const pw_core_events events = [] {
    pw_core_events table{};
    table.version = PW_VERSION_CORE_EVENTS;
    // The core may not go within its own call.
    table.error = [](void* data, std::uint32_t id, int, int result, const char* message) {
      auto& self = *static_cast<Connection*>(data);
      trace(TraceLevel::warning, "[audio] PipeWire object %u: %s (%d)\n", id, message, result);
      if (id == PW_ID_CORE && result == -EPIPE) {
        pw_loop_signal_event(pw_thread_loop_get_loop(self.loop_), self.lost_);
      }
    };
    return table;
  }();
  client.core = connect_once();
  if (client.core == nullptr) return false;
  pw_core_add_listener(client.core, &client.hook, &events, this);
  return true;
}

void Connection::close(Client& client) {
  if (client.core == nullptr) return;
  spa_hook_remove(&client.hook);
  pw_core_disconnect(std::exchange(client.core, nullptr));
}

void Connection::connect() {
  if (!open(bearer_) || !open(asker_)) {
    close(bearer_);
    note_away("PipeWire can't be reached");
    ++failures_;
    retry_later();
    return;
  }
  failures_ = 0;
  if (std::exchange(is_away_, false)) trace(TraceLevel::notice, "PipeWire is there again\n");
  for (User* const user : users_) user->connected(*core());
}

void Connection::lose() {
  if (core() == nullptr) return;
  note_away("PipeWire is gone");
  for (User* const user : users_) user->disconnected();
  close(asker_);
  close(bearer_);
  retry_later();
}

void Connection::note_away(const char* how) {
  if (!std::exchange(is_away_, true)) trace(TraceLevel::notice, "%s; audio stands still until it is there\n", how);
}

void Connection::retry_later() {
  const std::uint64_t ms = std::min(kFirstRetryMs << std::min(failures_, 8u), kLastRetryMs);
  const timespec wait{.tv_sec = 0, .tv_nsec = static_cast<long>(ms) * 1'000'000 - 1};
  const timespec once{};
  pw_loop_update_timer(pw_thread_loop_get_loop(loop_), retry_, const_cast<timespec*>(&wait),
                       const_cast<timespec*>(&once), false);
}

}  // namespace sonivo::pipewire
