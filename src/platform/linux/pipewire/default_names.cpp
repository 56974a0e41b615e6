#include "platform/linux/pipewire/default_names.h"

#include <spa/utils/json.h>

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace sonivo::pipewire {
namespace {

constexpr std::chrono::seconds kAskAgain{1};

/// The name in a value like {"name":"alsa_input.analog"}.
std::string name_in(const char* value) {
  std::array<char, 1024> name{};
  if (value == nullptr) return {};
  spa_json outer;
  spa_json object;
  spa_json_init(&outer, value, std::strlen(value));
  if (spa_json_enter_object(&outer, &object) <= 0) return {};
  std::array<char, 128> key{};
  while (spa_json_get_string(&object, key.data(), static_cast<int>(key.size())) > 0) {
    if (std::string_view(key.data()) == "name") {
      return spa_json_get_string(&object, name.data(), static_cast<int>(name.size())) > 0 ? name.data() : "";
    }
    const char* skipped = nullptr;
    if (spa_json_next(&object, &skipped) <= 0) break;
  }
  return {};
}

}  // namespace

DefaultNames::DefaultNames(Connection& connection, const Registry& registry,
                           std::function<void(DataFlow, const std::string&)> told)
    : registry_(registry), told_(std::move(told)), ask_again_(connection, [this] {
        asks_again_ = false;
        ask();
      }) {}

void DefaultNames::follow(std::uint32_t metadata) {
  if (asked_) return;
  metadata_ = metadata;
  ask();
}

void DefaultNames::ask() {
  if (metadata_ == SPA_ID_INVALID) return;
  static const pw_metadata_events events = [] {
    pw_metadata_events table{};
    table.version = PW_VERSION_METADATA_EVENTS;
    table.property = [](void* self, std::uint32_t subject, const char* key, const char*, const char* value) {
      return subject == PW_ID_CORE ? static_cast<DefaultNames*>(self)->changed(key, value) : 0;
    };
    return table;
  }();
  asked_ = std::make_unique<BoundObject>(registry_, metadata_, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, &events,
                                         this);
}

/// While a client asks for the names for the first time, the server tells changes of them to nobody else.
void DefaultNames::ask_later() {
  if (!std::exchange(asks_again_, true)) ask_again_.start(kAskAgain);
}

void DefaultNames::forget() {
  asked_.reset();
  if (std::exchange(metadata_, SPA_ID_INVALID) == SPA_ID_INVALID) return;
  told_(DataFlow::capture, {});
  told_(DataFlow::render, {});
}

int DefaultNames::changed(const char* key, const char* value) {
  const std::string_view which = key != nullptr ? key : "";
  if (which.empty() || which == "default.audio.source") told_(DataFlow::capture, name_in(value));
  if (which.empty() || which == "default.audio.sink") told_(DataFlow::render, name_in(value));
  return 0;
}

}  // namespace sonivo::pipewire
