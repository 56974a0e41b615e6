#include "platform/linux/pipewire/graph.h"

#include <spa/utils/json.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/trace.h"
#include "platform/linux/pipewire/dictionary.h"

namespace sonivo::pipewire {
namespace {

constexpr int kRoundsUntilKnown = 2;
constexpr int kAskAgainSeconds = 1;

/// Monitors of sinks are ports of the sink, so no node of a source's class is one.
std::optional<DataFlow> flow_of(std::string_view media_class) {
  if (media_class == "Audio/Source" || media_class == "Audio/Source/Virtual") return DataFlow::capture;
  if (media_class == "Audio/Sink") return DataFlow::render;
  return std::nullopt;
}

/// From a count, or positions like "FL,FR" or "[ FL FR ]".
bool tells_one_channel(const spa_dict& properties) {
  if (const auto count = number_of(properties, "audio.channels")) return *count == 1;
  std::string_view positions = text_of(properties, "audio.position");
  const std::size_t first = positions.find_first_not_of("[ \t");
  if (first == positions.npos) return false;
  positions = positions.substr(first, positions.find_last_not_of("] \t") + 1 - first);
  return !positions.empty() && positions.find_first_of(", \t") == positions.npos;
}

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

struct Graph::Endpoint {
  Endpoint(Dispatcher& dispatcher, EndpointFacts its_facts) : facts(std::move(its_facts)), callbacks(dispatcher) {}

  EndpointFacts facts;
  std::uint32_t node_id = SPA_ID_INVALID;
  std::uint32_t priority = 0;  ///< when a default is chosen
  NodeVolume volume;
  Callbacks<IAudioEndpointVolumeCallback> callbacks;
};

/// A node that is there. Its proxy and hooks belong to the loop's thread.
struct Graph::Node {
  Node(Graph& its_graph, std::uint32_t its_id, Graph::Endpoint& its_endpoint)
      : graph(its_graph), id(its_id), endpoint(its_endpoint) {}
  ~Node() {
    if (proxy == nullptr) return;
    spa_hook_remove(&object_hook);
    spa_hook_remove(&proxy_hook);
    pw_proxy_destroy(proxy);
  }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  Graph& graph;
  const std::uint32_t id;
  Graph::Endpoint& endpoint;
  pw_proxy* proxy = nullptr;
  spa_hook object_hook{};
  spa_hook proxy_hook{};
  std::uint32_t card = SPA_ID_INVALID;      ///< the sound card that it belongs to
  std::optional<std::int32_t> card_device;  ///< which of the card's nodes it is
  bool writing = false;                     ///< what is told meanwhile may be older than what is written
  std::optional<NodeVolume> told_meanwhile;
  NodeVolume before_write;
  std::unique_ptr<VolumeRequest> request;  ///< under way
  int latest_write = kNoWrite;             ///< number of the answer that ends the latest write, once its request has
  static constexpr int kNoWrite = -1;
};

/// A sound card and the routes in use on it.
struct Graph::Card {
  Card() = default;
  ~Card() {
    spa_hook_remove(&hook);
    pw_proxy_destroy(proxy);
  }
  Card(const Card&) = delete;
  Card& operator=(const Card&) = delete;

  pw_proxy* proxy = nullptr;
  spa_hook hook{};
  std::vector<CardRoute> routes;  ///< at most one for a device and direction
};

Graph::Graph(Connection& connection, Dispatcher& dispatcher, FriendlyNames names)
    : connection_(connection), dispatcher_(dispatcher), names_(std::move(names)), callbacks_(dispatcher) {
  const Connection::Lock lock(connection_);
  ask_again_ = pw_loop_add_timer(
      &connection_.loop(),
      [](void* self, std::uint64_t) {
        static_cast<Graph*>(self)->asks_again_ = false;
        static_cast<Graph*>(self)->ask_for_defaults();
      },
      this);
  connection_.add(*this);
}

Graph::~Graph() {
  const Connection::Lock lock(connection_);
  connection_.remove(*this);
  if (core_ != nullptr) disconnected();
  pw_loop_destroy_source(&connection_.loop(), ask_again_);
}

void Graph::wait_until_known(std::uint32_t limit_ms) {
  {
    const Connection::Lock lock(connection_);
    if (connection_.core() == nullptr) return;
  }
  std::unique_lock lock(mutex_);
  known_changed_.wait_for(lock, std::chrono::milliseconds(limit_ms), [&] { return known_; });
}

std::vector<EndpointFacts> Graph::endpoints(DataFlow flow) const {
  std::scoped_lock lock(mutex_);
  std::vector<EndpointFacts> all;
  for (const auto& each : endpoints_) {
    if (each->facts.flow == flow) all.push_back(each->facts);
  }
  return all;
}

std::optional<EndpointFacts> Graph::find(const std::string& id) const {
  std::scoped_lock lock(mutex_);
  for (const auto& each : endpoints_) {
    if (each->facts.id == id) return each->facts;
  }
  return std::nullopt;
}

std::string Graph::default_id(DataFlow flow) const {
  std::scoped_lock lock(mutex_);
  const auto found = default_ids_.find(flow);
  return found != default_ids_.end() ? found->second : std::string();
}

void Graph::add(DepartureWatch& watch) { watches_.push_back(&watch); }
void Graph::remove(DepartureWatch& watch) { std::erase(watches_, &watch); }

// ---- The server's objects

void Graph::connected(pw_core& core) {
  core_ = &core;
  rounds_ = 0;
  static const pw_core_events core_events = [] {
    pw_core_events table{};
    table.version = PW_VERSION_CORE_EVENTS;
    table.done = [](void* self, std::uint32_t id, int) {
      if (id == PW_ID_CORE) static_cast<Graph*>(self)->synced();
    };
    return table;
  }();
  static const pw_registry_events registry_events = [] {
    pw_registry_events table{};
    table.version = PW_VERSION_REGISTRY_EVENTS;
    table.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                      const spa_dict* properties) { static_cast<Graph*>(self)->global_added(id, type, properties); };
    table.global_remove = [](void* self, std::uint32_t id) { static_cast<Graph*>(self)->global_removed(id); };
    return table;
  }();
  pw_core_add_listener(core_, &core_hook_, &core_events, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(registry_, &registry_hook_, &registry_events, this);
  pw_core_sync(core_, PW_ID_CORE, 0);
}

void Graph::synced() {
  if (++rounds_ < kRoundsUntilKnown) {
    pw_core_sync(core_, PW_ID_CORE, 0);
  } else {
    set_known();
  }
}

void Graph::set_known() {
  {
    std::scoped_lock lock(mutex_);
    known_ = true;
  }
  known_changed_.notify_all();
}

void Graph::disconnected() {
  while (!nodes_.empty()) remove_node(nodes_.begin());
  cards_.clear();
  forget_defaults();
  spa_hook_remove(&registry_hook_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  registry_ = nullptr;
  spa_hook_remove(&core_hook_);
  core_ = nullptr;
  std::scoped_lock lock(mutex_);
  known_ = false;
}

void Graph::global_added(std::uint32_t id, const char* type, const spa_dict* properties) {
  if (properties == nullptr) return;
  const std::string_view kind(type);
  if (kind == PW_TYPE_INTERFACE_Node) {
    const auto flow = flow_of(text_of(*properties, PW_KEY_MEDIA_CLASS));
    if (flow && !text_of(*properties, PW_KEY_NODE_NAME).empty()) add_node(id, *properties, *flow);
  } else if (kind == PW_TYPE_INTERFACE_Device && text_of(*properties, PW_KEY_MEDIA_CLASS) == "Audio/Device") {
    add_card(id);
  } else if (kind == PW_TYPE_INTERFACE_Metadata && text_of(*properties, PW_KEY_METADATA_NAME) == "default") {
    if (defaults_ == nullptr) {
      defaults_id_ = id;
      ask_for_defaults();
    }
  } else if (kind == PW_TYPE_INTERFACE_Client) {
    ask_for_defaults_later();
  }
}

void Graph::global_removed(std::uint32_t id) {
  if (const auto node = nodes_.find(id); node != nodes_.end()) {
    remove_node(node);
  } else if (cards_.erase(id) == 0 && id == defaults_id_) {
    forget_defaults();
    for (const auto& [name, own] : own_nodes_) {
      if (const auto old = node_of(name); old != nodes_.end()) remove_node(old);
      own->manager_left();
    }
  }
}

// ---- Endpoints

Graph::Endpoint& Graph::remembered(const std::string& id, DataFlow flow) {
  const auto found =
      std::find_if(endpoints_.begin(), endpoints_.end(), [&](const auto& each) { return each->facts.id == id; });
  if (found != endpoints_.end()) return **found;
  endpoints_.push_back(std::make_unique<Endpoint>(dispatcher_, EndpointFacts{id, id, flow, false}));
  callbacks_.notify([id](IMMNotificationClient& client) { client.OnDeviceAdded(id); });
  return *endpoints_.back();
}

std::string Graph::name_of(const EndpointFacts& endpoint, const spa_dict& properties) const {
  static const FriendlyNames as_told;
  const FriendlyNames& names = endpoint.flow == DataFlow::capture ? names_ : as_told;
  return names.name_of(std::string(text_of(properties, PW_KEY_NODE_DESCRIPTION)), endpoint.id);
}

void Graph::add_node(std::uint32_t id, const spa_dict& properties, DataFlow flow) {
  const std::string name(text_of(properties, PW_KEY_NODE_NAME));
  Endpoint* endpoint = nullptr;
  {
    std::scoped_lock lock(mutex_);
    endpoint = &remembered(name, flow);
    endpoint->facts.flow = flow;
    endpoint->facts.name = name_of(endpoint->facts, properties);
    endpoint->facts.present = true;
    endpoint->priority = number_of(properties, PW_KEY_PRIORITY_SESSION).value_or(0);
    endpoint->node_id = id;
  }
  auto node = std::make_unique<Node>(*this, id, *endpoint);
  node->proxy = static_cast<pw_proxy*>(pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
  if (node->proxy != nullptr) {
    static const pw_node_events node_events = [] {
      pw_node_events table{};
      table.version = PW_VERSION_NODE_EVENTS;
      table.info = [](void* data, const pw_node_info* info) {
        auto& self = *static_cast<Node*>(data);
        if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) == 0 || info->props == nullptr) return;
        self.graph.node_props(self, *info->props);
      };
      table.param = [](void* data, int, std::uint32_t param_id, std::uint32_t, std::uint32_t, const spa_pod* param) {
        auto& self = *static_cast<Node*>(data);
        if (param_id == SPA_PARAM_Props && param != nullptr) self.graph.node_param(self, *param);
      };
      return table;
    }();
    static const pw_proxy_events proxy_events = [] {
      pw_proxy_events table{};
      table.version = PW_VERSION_PROXY_EVENTS;
      table.done = [](void* data, int seq) {
        auto& self = *static_cast<Node*>(data);
        if (seq == self.latest_write) self.graph.volume_settled(self);
      };
      return table;
    }();
    pw_proxy_add_object_listener(node->proxy, &node->object_hook, &node_events, node.get());
    pw_proxy_add_listener(node->proxy, &node->proxy_hook, &proxy_events, node.get());
    std::uint32_t wanted = SPA_PARAM_Props;
    pw_node_subscribe_params(reinterpret_cast<pw_node*>(node->proxy), &wanted, 1);
  }
  nodes_[id] = std::move(node);
  callbacks_.notify([name](IMMNotificationClient& client) { client.OnDeviceStateChanged(name, kDeviceActive); });
  update_default(flow);
}

Graph::Nodes::iterator Graph::node_of(const std::string& id) {
  return std::find_if(nodes_.begin(), nodes_.end(), [&](const auto& each) {
    const Node& node = *each.second;
    return node.endpoint.facts.id == id && node.endpoint.node_id == node.id;
  });
}

void Graph::remove_node(Nodes::iterator node) {
  Endpoint& endpoint = node->second->endpoint;
  const bool is_it = endpoint.node_id == node->first;  // else a later node of the same name has taken its place
  nodes_.erase(node);
  if (!is_it) return;
  {
    std::scoped_lock lock(mutex_);
    endpoint.facts.present = false;
    endpoint.node_id = SPA_ID_INVALID;
  }
  const std::string& id = endpoint.facts.id;
  for (DepartureWatch* const watch : watches_) watch->departed(id);
  callbacks_.notify([id](IMMNotificationClient& client) { client.OnDeviceStateChanged(id, kDeviceNotPresent); });
  update_default(endpoint.facts.flow);
}

void Graph::node_props(Node& node, const spa_dict& properties) {
  node.card = number_of(properties, PW_KEY_DEVICE_ID).value_or(SPA_ID_INVALID);
  if (const auto device = number_of(properties, "card.profile.device")) {
    node.card_device = static_cast<std::int32_t>(*device);
  }
  const std::string& id = node.endpoint.facts.id;
  const std::string name = name_of(node.endpoint.facts, properties);
  {
    std::scoped_lock lock(mutex_);
    node.endpoint.facts.has_one_channel = tells_one_channel(properties);
    if (node.endpoint.facts.name == name) return;
    node.endpoint.facts.name = name;
  }
  callbacks_.notify(
      [id](IMMNotificationClient& client) { client.OnPropertyValueChanged(id, PKEY_Device_FriendlyName); });
}

void Graph::add_card(std::uint32_t id) {
  auto* const proxy =
      static_cast<pw_proxy*>(pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, 0));
  if (proxy == nullptr) return;
  auto card = std::make_unique<Card>();
  card->proxy = proxy;
  static const pw_device_events events = [] {
    pw_device_events table{};
    table.version = PW_VERSION_DEVICE_EVENTS;
    table.param = [](void* data, int, std::uint32_t param_id, std::uint32_t, std::uint32_t, const spa_pod* param) {
      if (param_id != SPA_PARAM_Route || param == nullptr) return;
      const auto route = read_route(*param);
      if (!route) return;
      auto& routes = static_cast<Card*>(data)->routes;
      std::erase_if(routes, [&](const CardRoute& each) {
        return each.device == route->device && each.direction == route->direction;
      });
      routes.push_back(*route);
    };
    return table;
  }();
  pw_proxy_add_object_listener(proxy, &card->hook, &events, card.get());
  std::uint32_t wanted = SPA_PARAM_Route;
  pw_device_subscribe_params(reinterpret_cast<pw_device*>(proxy), &wanted, 1);
  cards_[id] = std::move(card);
}

// ---- Defaults

void Graph::ask_for_defaults() {
  if (defaults_id_ == SPA_ID_INVALID) return;
  auto* const asked = static_cast<pw_metadata*>(
      pw_registry_bind(registry_, defaults_id_, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  if (asked == nullptr) return;
  leave_defaults();
  defaults_ = asked;
  static const pw_metadata_events events = [] {
    pw_metadata_events table{};
    table.version = PW_VERSION_METADATA_EVENTS;
    table.property = [](void* self, std::uint32_t subject, const char* key, const char*, const char* value) {
      return subject == PW_ID_CORE ? static_cast<Graph*>(self)->default_changed(key, value) : 0;
    };
    return table;
  }();
  pw_metadata_add_listener(defaults_, &defaults_hook_, &events, this);
}

/// While a client asks for the defaults for the first time, the server tells changes of them to nobody else.
void Graph::ask_for_defaults_later() {
  if (std::exchange(asks_again_, true)) return;
  timespec wait{.tv_sec = kAskAgainSeconds, .tv_nsec = 0};
  pw_loop_update_timer(&connection_.loop(), ask_again_, &wait, nullptr, false);
}

void Graph::leave_defaults() {
  if (defaults_ == nullptr) return;
  spa_hook_remove(&defaults_hook_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(defaults_));
  defaults_ = nullptr;
}

void Graph::forget_defaults() {
  leave_defaults();
  if (std::exchange(defaults_id_, SPA_ID_INVALID) == SPA_ID_INVALID) return;
  set_default(DataFlow::capture, {});
  set_default(DataFlow::render, {});
}

int Graph::default_changed(const char* key, const char* value) {
  const std::string_view which = key != nullptr ? key : "";
  if (which.empty() || which == "default.audio.source") set_default(DataFlow::capture, name_in(value));
  if (which.empty() || which == "default.audio.sink") set_default(DataFlow::render, name_in(value));
  return 0;
}

void Graph::set_default(DataFlow flow, const std::string& name) {
  {
    std::scoped_lock lock(mutex_);
    default_names_[flow] = name;
    if (!name.empty() && !own_nodes_.contains(name)) foreign_names_[flow] = name;
  }
  update_default(flow);
}

/// The server may name what isn't there yet, and a sink as the default source, whose monitor that is. Where it names a
/// node of ours, which lives on another one, that is the latest default before, else the one of the highest priority.
std::string Graph::default_there(DataFlow flow) {
  const bool is_own = own_nodes_.contains(default_names_[flow]);
  const std::string& wanted = is_own ? foreign_names_[flow] : default_names_[flow];
  const Endpoint* best = nullptr;
  for (const auto& each : endpoints_) {
    const EndpointFacts& facts = each->facts;
    if (!facts.present || facts.flow != flow || own_nodes_.contains(facts.id)) continue;
    if (facts.id == wanted) return wanted;
    if (is_own && (best == nullptr || each->priority > best->priority)) best = each.get();
  }
  return best != nullptr ? best->facts.id : std::string();
}

void Graph::update_default(DataFlow flow) {
  std::string id;
  {
    std::scoped_lock lock(mutex_);
    id = default_there(flow);
    if (std::exchange(default_ids_[flow], id) == id) return;
  }
  for (const Role role : {Role::console, Role::multimedia, Role::communications}) {
    callbacks_.notify(
        [flow, role, id](IMMNotificationClient& client) { client.OnDefaultDeviceChanged(flow, role, id); });
  }
}

// ---- Volumes

std::optional<NodeVolume> Graph::volume(const std::string& id) const {
  std::scoped_lock lock(mutex_);
  for (const auto& each : endpoints_) {
    if (each->facts.id == id && each->facts.present) return each->volume;
  }
  return std::nullopt;
}

std::optional<NodeVolume> Graph::latest_volume(const std::string& id) const {
  std::scoped_lock lock(mutex_);
  for (const auto& each : endpoints_) {
    if (each->facts.id == id) return each->volume;
  }
  return std::nullopt;
}

Callbacks<IAudioEndpointVolumeCallback>* Graph::volume_callbacks(const std::string& id) {
  std::scoped_lock lock(mutex_);
  for (const auto& each : endpoints_) {
    if (each->facts.id == id) return &each->callbacks;
  }
  return nullptr;
}

bool Graph::set_volume(const std::string& id, const Guid& context, const std::function<void(NodeVolume&)>& change) {
  const Connection::Lock lock(connection_);
  const auto found = node_of(id);
  if (found == nodes_.end() || found->second->proxy == nullptr) return false;
  Node& node = *found->second;
  Endpoint& endpoint = node.endpoint;
  const NodeVolume before = endpoint.volume;
  NodeVolume wanted = before;
  change(wanted);
  if (wanted != before && !write_volume(node, before, wanted)) return false;
  {
    std::scoped_lock model(mutex_);
    endpoint.volume = wanted;
  }
  const AUDIO_VOLUME_NOTIFICATION_DATA data{context, wanted.muted, wanted.scalar()};
  endpoint.callbacks.notify([data](IAudioEndpointVolumeCallback& callback) { callback.OnNotify(&data); });
  return true;
}

bool Graph::write_volume(Node& node, const NodeVolume& before, const NodeVolume& wanted) {
  if (!node.writing) node.before_write = before;
  if (const auto own = own_nodes_.find(node.endpoint.facts.id); own != own_nodes_.end()) {
    own->second->set_volume(wanted);
    await_settled(node);
    return true;
  }
  if (!node.request) {
    node.request = std::make_unique<VolumeRequest>(
        connection_, [this, &node](VolumeRequest::Outcome outcome) { volume_answered(node, outcome); });
  }
  if (!request_volume(node, before, wanted)) {
    node.request.reset();
    await_settled(node);
    return false;
  }
  node.latest_write = Node::kNoWrite;
  node.writing = true;
  return true;
}

bool Graph::request_volume(Node& node, const NodeVolume& before, const NodeVolume& wanted) {
  std::array<std::uint8_t, 2048> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), std::uint32_t{memory.size()});
  const auto card = node.card_device ? cards_.find(node.card) : cards_.end();
  if (card != cards_.end()) {
    const std::uint32_t direction =
        node.endpoint.facts.flow == DataFlow::capture ? SPA_DIRECTION_INPUT : SPA_DIRECTION_OUTPUT;
    for (const CardRoute& route : card->second->routes) {
      if (route.device != *node.card_device || route.direction != direction) continue;
      return node.request->set_card_route(node.card, *route_volume(builder, route, before, wanted));
    }
  }
  return node.request->set_node_props(node.id, *volume_props(builder, before, wanted));
}

/// What the owner told of the node before it answered is on its way still.
void Graph::volume_answered(Node& node, VolumeRequest::Outcome outcome) {
  node.request.reset();
  if (outcome == VolumeRequest::Outcome::taken) return await_settled(node);
  trace(TraceLevel::warning, "[audio] nobody answers for the volume of %s\n", node.endpoint.facts.id.c_str());
  if (!node.told_meanwhile) node.told_meanwhile = node.before_write;
  volume_settled(node);
}

void Graph::await_settled(Node& node) {
  node.latest_write = pw_proxy_sync(node.proxy, 0);
  node.writing = true;
}

void Graph::node_param(Node& node, const spa_pod& param) {
  NodeVolume volume = node.told_meanwhile.value_or(node.endpoint.volume);
  if (!read_volume(param, volume)) return;
  if (node.writing) {
    node.told_meanwhile = volume;
  } else {
    adopt_volume(node.endpoint, volume);
  }
}

void Graph::volume_settled(Node& node) {
  node.writing = false;
  node.latest_write = Node::kNoWrite;
  if (const auto told = std::exchange(node.told_meanwhile, std::nullopt)) adopt_volume(node.endpoint, *told);
}

void Graph::adopt_volume(Endpoint& endpoint, const NodeVolume& volume) {
  {
    std::scoped_lock lock(mutex_);
    if (endpoint.volume == volume) return;
    endpoint.volume = volume;
  }
  const AUDIO_VOLUME_NOTIFICATION_DATA data{Guid{}, volume.muted, volume.scalar()};
  endpoint.callbacks.notify([data](IAudioEndpointVolumeCallback& callback) { callback.OnNotify(&data); });
}

}  // namespace sonivo::pipewire
