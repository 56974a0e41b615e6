#include "platform/linux/pipewire/volume_request.h"

#include <utility>

namespace sonivo::pipewire {
namespace {

constexpr timespec kAtOnce{.tv_sec = 0, .tv_nsec = 1};

}  // namespace

VolumeRequest::VolumeRequest(Connection& connection, std::function<void(Outcome)> ended)
    : loop_(connection.loop()), ended_(std::move(ended)), core_(connection.connect_beside()) {
  if (core_ == nullptr) return;
  static const pw_core_events events = [] {
    pw_core_events table{};
    table.version = PW_VERSION_CORE_EVENTS;
    table.done = [](void* data, std::uint32_t id, int number) {
      auto& self = *static_cast<VolumeRequest*>(data);
      if (id != PW_ID_CORE || number != self.latest_) return;
      self.outcome_ = Outcome::taken;
      self.end_in(kAtOnce);  // the core may not go within its own call
    };
    return table;
  }();
  pw_core_add_listener(core_, &core_hook_, &events, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  end_ = pw_loop_add_timer(
      &loop_,
      [](void* data, std::uint64_t) {
        const auto& self = *static_cast<VolumeRequest*>(data);
        const auto tell = self.ended_;  // which may destroy self
        tell(self.outcome_);
      },
      this);
  end_in({.tv_sec = kLimitS, .tv_nsec = 0});
}

VolumeRequest::~VolumeRequest() {
  if (core_ == nullptr) return;
  pw_loop_destroy_source(&loop_, end_);
  spa_hook_remove(&core_hook_);
  for (pw_proxy* const each : bound_) pw_proxy_destroy(each);
  if (registry_ != nullptr) pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  pw_core_disconnect(core_);
}

bool VolumeRequest::set_node_props(std::uint32_t node, const spa_pod& props) {
  pw_proxy* const proxy = bind(node, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE);
  if (proxy == nullptr) return false;
  pw_node_set_param(reinterpret_cast<pw_node*>(proxy), SPA_PARAM_Props, 0, &props);
  return sent();
}

bool VolumeRequest::set_card_route(std::uint32_t card, const spa_pod& route) {
  pw_proxy* const proxy = bind(card, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE);
  if (proxy == nullptr) return false;
  pw_device_set_param(reinterpret_cast<pw_device*>(proxy), SPA_PARAM_Route, 0, &route);
  return sent();
}

pw_proxy* VolumeRequest::bind(std::uint32_t id, const char* type, std::uint32_t version) {
  if (registry_ == nullptr || end_ == nullptr) return nullptr;
  auto* const proxy = static_cast<pw_proxy*>(pw_registry_bind(registry_, id, type, version, 0));
  if (proxy != nullptr) bound_.push_back(proxy);
  return proxy;
}

bool VolumeRequest::sent() {
  if (outcome_ == Outcome::taken) end_in({.tv_sec = kLimitS, .tv_nsec = 0});  // the end was near
  outcome_ = Outcome::given_up;
  latest_ = pw_core_sync(core_, PW_ID_CORE, 0);
  return true;
}

void VolumeRequest::end_in(timespec wait) {
  timespec once{};
  pw_loop_update_timer(&loop_, end_, &wait, &once, false);
}

}  // namespace sonivo::pipewire
