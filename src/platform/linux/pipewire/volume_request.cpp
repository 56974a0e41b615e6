#include "platform/linux/pipewire/volume_request.h"

#include <utility>

namespace sonivo::pipewire {

VolumeRequest::VolumeRequest(Connection& connection, std::function<void(Outcome)> ended)
    : ended_(std::move(ended)), end_(connection, [this] { end(); }), core_(connection.connect_beside()) {
  if (core_ == nullptr) return;
  static const pw_core_events events = [] {
    pw_core_events table{};
    table.version = PW_VERSION_CORE_EVENTS;
    table.done = [](void* data, std::uint32_t id, int number) {
      auto& self = *static_cast<VolumeRequest*>(data);
      if (id != PW_ID_CORE || number != self.latest_) return;
      self.outcome_ = Outcome::taken;
      self.end_.start({});  // the core may not go within its own call
    };
    return table;
  }();
  pw_core_add_listener(core_, &core_hook_, &events, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  end_.start(kLimit);
}

VolumeRequest::~VolumeRequest() {
  if (core_ == nullptr) return;
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
  if (registry_ == nullptr) return nullptr;
  auto* const proxy = static_cast<pw_proxy*>(pw_registry_bind(registry_, id, type, version, 0));
  if (proxy != nullptr) bound_.push_back(proxy);
  return proxy;
}

bool VolumeRequest::sent() {
  if (outcome_ == Outcome::taken) end_.start(kLimit);  // the end was near
  outcome_ = Outcome::given_up;
  latest_ = pw_core_sync(core_, PW_ID_CORE, 0);
  return true;
}

void VolumeRequest::end() {
  const auto tell = ended_;  // which may destroy this object
  tell(outcome_);
}

}  // namespace sonivo::pipewire
