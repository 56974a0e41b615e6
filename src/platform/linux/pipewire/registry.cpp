#include "platform/linux/pipewire/registry.h"

namespace sonivo::pipewire {

Registry::Registry(Connection& connection, Registry::User& user, int rounds)
    : connection_(connection), user_(user), rounds_(rounds) {
  const Connection::Lock lock(connection_);
  connection_.add(*this);
}

Registry::~Registry() {
  const Connection::Lock lock(connection_);
  connection_.remove(*this);
  if (core_ != nullptr) disconnected();
}

void Registry::connected(pw_core&) {
  static const pw_core_events core_events = [] {
    pw_core_events table{};
    table.version = PW_VERSION_CORE_EVENTS;
    table.done = [](void* self, std::uint32_t id, int number) {
      if (id == PW_ID_CORE) static_cast<Registry*>(self)->answered(number);
    };
    return table;
  }();
  static const pw_registry_events objects_events = [] {
    pw_registry_events table{};
    table.version = PW_VERSION_REGISTRY_EVENTS;
    table.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                      const spa_dict* properties) {
      if (properties != nullptr) static_cast<Registry*>(self)->user_.came(id, type, *properties);
    };
    table.global_remove = [](void* self, std::uint32_t id) { static_cast<Registry*>(self)->user_.went(id); };
    return table;
  }();
  core_ = connection_.asker();
  pw_core_add_listener(core_, &core_hook_, &core_events, this);
  objects_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(objects_, &objects_hook_, &objects_events, this);
  rounds_left_ = rounds_;
  ask();
}

void Registry::disconnected() {
  user_.lost();
  spa_hook_remove(&objects_hook_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(objects_));
  spa_hook_remove(&core_hook_);
  core_ = nullptr;
}

void Registry::ask() {
  if (rounds_left_ != 0) question_ = pw_core_sync(core_, PW_ID_CORE, 0);
}

void Registry::answered(int number) {
  if (rounds_left_ == 0 || number != question_) return;
  if (--rounds_left_ == 0) user_.told();
  ask();
}

}  // namespace sonivo::pipewire
