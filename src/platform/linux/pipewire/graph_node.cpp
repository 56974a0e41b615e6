#include "platform/linux/pipewire/graph_node.h"

#include <array>
#include <utility>

#include "base/trace.h"
#include "platform/linux/pipewire/dictionary.h"

namespace sonivo::pipewire {

GraphNode::GraphNode(Connection& connection, const Registry& registry, const CardRoutes& cards, std::uint32_t id,
                     Endpoint endpoint)
    : connection_(connection),
      cards_(cards),
      id_(id),
      endpoint_(endpoint),
      node_(registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &node_events(), this) {
  if (node_.get() == nullptr) return;
  static const pw_proxy_events proxy_events = [] {
    pw_proxy_events table{};
    table.version = PW_VERSION_PROXY_EVENTS;
    table.done = [](void* data, int number) {
      auto& self = *static_cast<GraphNode*>(data);
      if (number == self.latest_write_) self.settled();
    };
    return table;
  }();
  pw_proxy_add_listener(node_.get(), &proxy_hook_, &proxy_events, this);
  std::uint32_t wanted = SPA_PARAM_Props;
  pw_node_subscribe_params(node_.get<pw_node>(), &wanted, 1);
}

GraphNode::~GraphNode() {
  if (node_.get() != nullptr) spa_hook_remove(&proxy_hook_);
}

const pw_node_events& GraphNode::node_events() {
  static const pw_node_events events = [] {
    pw_node_events table{};
    table.version = PW_VERSION_NODE_EVENTS;
    table.info = [](void* self, const pw_node_info* info) { static_cast<GraphNode*>(self)->told_info(*info); };
    table.param = [](void* self, int, std::uint32_t id, std::uint32_t, std::uint32_t, const spa_pod* param) {
      if (id == SPA_PARAM_Props && param != nullptr) static_cast<GraphNode*>(self)->told_param(*param);
    };
    return table;
  }();
  return events;
}

void GraphNode::told_info(const pw_node_info& info) {
  if ((info.change_mask & PW_NODE_CHANGE_MASK_STATE) != 0) told_failure(info.state == PW_NODE_STATE_ERROR);
  if ((info.change_mask & PW_NODE_CHANGE_MASK_PROPS) == 0 || info.props == nullptr) return;
  card_ = number_of(*info.props, PW_KEY_DEVICE_ID).value_or(SPA_ID_INVALID);
  if (const auto device = number_of(*info.props, "card.profile.device")) {
    card_device_ = static_cast<std::int32_t>(*device);
  }
  told_properties(*info.props);
}

void GraphNode::told_param(const spa_pod& props) {
  NodeVolume volume = told_meanwhile_.value_or(endpoint_.volume);
  if (!read_volume(props, volume)) return;
  if (writing_) {
    told_meanwhile_ = volume;
  } else {
    told_volume(volume);
  }
}

bool GraphNode::write_volume(const NodeVolume& wanted, OwnNode* own) {
  if (node_.get() == nullptr) return false;
  if (!writing_) before_write_ = endpoint_.volume;
  if (own != nullptr) {
    own->set_volume(wanted);
    await_settled();
    return true;
  }
  if (!request_) {
    request_ =
        std::make_unique<VolumeRequest>(connection_, [this](VolumeRequest::Outcome outcome) { answered(outcome); });
  }
  if (!request(wanted)) {
    request_.reset();
    await_settled();
    return false;
  }
  latest_write_ = kNoWrite;
  writing_ = true;
  return true;
}

bool GraphNode::request(const NodeVolume& wanted) {
  std::array<std::uint8_t, 2048> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), std::uint32_t{memory.size()});
  const std::uint32_t direction = endpoint_.flow == DataFlow::capture ? SPA_DIRECTION_INPUT : SPA_DIRECTION_OUTPUT;
  const CardRoute* const route = card_device_ ? cards_.find(card_, *card_device_, direction) : nullptr;
  if (route == nullptr) return request_->set_node_props(id_, *volume_props(builder, endpoint_.volume, wanted));
  return request_->set_card_route(card_, *route_volume(builder, *route, endpoint_.volume, wanted));
}

/// What the owner told of the node before it answered is on its way still.
void GraphNode::answered(VolumeRequest::Outcome outcome) {
  request_.reset();
  if (outcome == VolumeRequest::Outcome::taken) return await_settled();
  trace(TraceLevel::warning, "[audio] nobody answers for the volume of %s\n", endpoint_.id.c_str());
  if (!told_meanwhile_) told_meanwhile_ = before_write_;
  settled();
}

void GraphNode::await_settled() {
  latest_write_ = pw_proxy_sync(node_.get(), 0);
  writing_ = true;
}

void GraphNode::settled() {
  writing_ = false;
  latest_write_ = kNoWrite;
  if (const auto told = std::exchange(told_meanwhile_, std::nullopt)) told_volume(*told);
}

}  // namespace sonivo::pipewire
