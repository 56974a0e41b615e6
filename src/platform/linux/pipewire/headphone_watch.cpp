#include "platform/linux/pipewire/headphone_watch.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/pipewire/card_ports.h"

namespace sonivo::pipewire {
namespace {

constexpr int kRoundsUntilAllTold = 3;  // the cards that there are, what each is, then its ports
constexpr std::uint32_t kAllParams = 0xFFFFFFFF;

}  // namespace

struct HeadphoneWatch::Card {
  explicit Card(HeadphoneWatch& its_watch) : watch(its_watch) {}
  ~Card() {
    spa_hook_remove(&hook);
    pw_proxy_destroy(proxy);
  }
  Card(const Card&) = delete;
  Card& operator=(const Card&) = delete;

  void tell_info(const pw_device_info& info) {
    if ((info.change_mask & PW_DEVICE_CHANGE_MASK_PROPS) != 0 && info.props != nullptr) {
      const char* const shape = spa_dict_lookup(info.props, PW_KEY_DEVICE_FORM_FACTOR);
      form_factor = shape != nullptr ? shape : "";
      watch.look();
    }
    if ((info.change_mask & PW_DEVICE_CHANGE_MASK_PARAMS) == 0) return;
    // A subscription misses changes that follow each other at once.
    for (const std::uint32_t id : {SPA_PARAM_EnumRoute, SPA_PARAM_Route}) {
      pw_device_enum_params(reinterpret_cast<pw_device*>(proxy), 0, id, 0, kAllParams, nullptr);
    }
  }
  /// EnumRoute tells of a port, Route of the one that is in use in its direction.
  void tell_param(std::uint32_t param_id, const spa_pod& param) {
    const auto port = read_port(param);
    if (!port) return;
    const auto known = std::find_if(ports.begin(), ports.end(), [&](const CardPort& each) {
      return each.index == port->index && each.direction == port->direction;
    });
    const bool was_in_use = known != ports.end() && known->in_use;
    if (known != ports.end()) ports.erase(known);
    if (param_id == SPA_PARAM_Route) {
      for (CardPort& each : ports) each.in_use = each.in_use && each.direction != port->direction;
    }
    ports.push_back(*port);
    ports.back().in_use = was_in_use || param_id == SPA_PARAM_Route;
    watch.look();
  }

  HeadphoneWatch& watch;
  pw_proxy* proxy = nullptr;
  spa_hook hook{};
  std::string form_factor;
  std::vector<CardPort> ports;
};

HeadphoneWatch::HeadphoneWatch(Connection& connection, std::function<void(bool)> changed)
    : connection_(connection), changed_(std::move(changed)) {
  const Connection::Lock lock(connection_);
  connection_.add(*this);
}

HeadphoneWatch::~HeadphoneWatch() {
  const Connection::Lock lock(connection_);
  connection_.remove(*this);
  if (core_ != nullptr) disconnected();
}

void HeadphoneWatch::connected(pw_core& core) {
  static const pw_core_events core_events = [] {
    pw_core_events table{};
    table.version = PW_VERSION_CORE_EVENTS;
    table.done = [](void* self, std::uint32_t id, int) {
      if (id == PW_ID_CORE) static_cast<HeadphoneWatch*>(self)->round_done();
    };
    return table;
  }();
  static const pw_registry_events registry_events = [] {
    pw_registry_events table{};
    table.version = PW_VERSION_REGISTRY_EVENTS;
    table.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                      const spa_dict* properties) {
      const char* const kind = properties != nullptr ? spa_dict_lookup(properties, PW_KEY_MEDIA_CLASS) : nullptr;
      const bool is_card = std::string_view(type) == PW_TYPE_INTERFACE_Device && kind != nullptr &&
                           std::string_view(kind) == "Audio/Device";
      if (is_card) static_cast<HeadphoneWatch*>(self)->add_card(id);
    };
    table.global_remove = [](void* data, std::uint32_t id) {
      auto& self = *static_cast<HeadphoneWatch*>(data);
      if (self.cards_.erase(id) != 0) self.look();
    };
    return table;
  }();
  core_ = &core;
  rounds_ = 0;
  pw_core_add_listener(core_, &core_hook_, &core_events, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(registry_, &registry_hook_, &registry_events, this);
  pw_core_sync(core_, PW_ID_CORE, 0);
}

void HeadphoneWatch::disconnected() {
  cards_.clear();
  spa_hook_remove(&registry_hook_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  registry_ = nullptr;
  spa_hook_remove(&core_hook_);
  core_ = nullptr;
}

void HeadphoneWatch::round_done() {
  if (rounds_ == kRoundsUntilAllTold) return;  // somebody else's question
  if (++rounds_ < kRoundsUntilAllTold) {
    pw_core_sync(core_, PW_ID_CORE, 0);
  } else {
    look();
  }
}

void HeadphoneWatch::add_card(std::uint32_t id) {
  static const pw_device_events events = [] {
    pw_device_events table{};
    table.version = PW_VERSION_DEVICE_EVENTS;
    table.info = [](void* card, const pw_device_info* info) { static_cast<Card*>(card)->tell_info(*info); };
    table.param = [](void* card, int, std::uint32_t param_id, std::uint32_t, std::uint32_t, const spa_pod* param) {
      if (param != nullptr) static_cast<Card*>(card)->tell_param(param_id, *param);
    };
    return table;
  }();
  auto* const proxy =
      static_cast<pw_proxy*>(pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, 0));
  if (proxy == nullptr) return;
  auto card = std::make_unique<Card>(*this);
  card->proxy = proxy;
  pw_proxy_add_object_listener(proxy, &card->hook, &events, card.get());
  cards_[id] = std::move(card);
}

void HeadphoneWatch::look() {
  if (rounds_ < kRoundsUntilAllTold) return;
  const bool plugged = std::any_of(cards_.begin(), cards_.end(), [](const auto& each) {
    return has_headphones(each.second->form_factor, each.second->ports);
  });
  if (std::exchange(told_, plugged) != plugged) changed_(plugged);
}

}  // namespace sonivo::pipewire
