#include "platform/linux/pipewire/graph.h"

#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/linux/pipewire/dictionary.h"

namespace sonivo::pipewire {
namespace {

constexpr int kRoundsUntilKnown = 2;  // the nodes that there are, then what each tells of itself
constexpr std::ptrdiff_t kMostAway = 64;
constexpr std::chrono::seconds kVacancy{4};  // of a default, before it is told of

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

}  // namespace

struct Graph::Endpoint {
  Endpoint(Dispatcher& dispatcher, EndpointFacts its_facts) : facts(std::move(its_facts)), callbacks(dispatcher) {}

  EndpointFacts facts;
  std::uint32_t node_id = SPA_ID_INVALID;
  std::uint64_t departure = 0;  ///< number of its latest
  std::uint32_t priority = 0;   ///< when a default is chosen
  NodeVolume volume;
  VolumeCallbacks callbacks;
};

class Graph::Node final : public GraphNode {
 public:
  Node(Graph& graph, std::uint32_t id, std::shared_ptr<Graph::Endpoint> its_endpoint)
      : GraphNode(graph.connection_, graph.registry_, graph.cards_, id,
                  {its_endpoint->facts.id, its_endpoint->facts.flow, its_endpoint->volume}),
        endpoint(std::move(its_endpoint)),
        graph_(graph) {}

  const std::shared_ptr<Graph::Endpoint> endpoint;

 private:
  void told_properties(const spa_dict& properties) override { graph_.told_properties(*endpoint, properties); }
  void told_failure(bool has_failed) override { graph_.told_failure(*endpoint, has_failed); }
  void told_volume(const NodeVolume& volume) override { graph_.told_volume(*endpoint, volume); }

  Graph& graph_;
};

Graph::Graph(Connection& connection, Dispatcher& dispatcher, FriendlyNames names)
    : connection_(connection),
      dispatcher_(dispatcher),
      names_(std::move(names)),
      callbacks_(dispatcher),
      vacancy_(connection,
               [this] {
                 for (const DataFlow flow : {DataFlow::capture, DataFlow::render}) tell_default(flow, default_id(flow));
               }),
      told_names_(connection, registry_, [this](DataFlow flow, const std::string& name) { set_default(flow, name); }),
      registry_(connection, *this, kRoundsUntilKnown) {}

Graph::~Graph() = default;

void Graph::wait_until_known(std::uint32_t limit_ms) {
  std::unique_lock lock(mutex_, std::defer_lock);
  {
    const Connection::Lock loop(connection_);
    if (connection_.core() == nullptr) return;
    lock.lock();
  }
  known_changed_.wait_for(lock, std::chrono::milliseconds(limit_ms),
                          [&, before = losses_] { return known_ || losses_ != before; });
}

void Graph::wait_for_default(DataFlow flow, std::uint32_t limit_ms) {
  std::unique_lock lock(mutex_);
  known_changed_.wait_for(lock, std::chrono::milliseconds(limit_ms), [&] { return !default_ids_[flow].empty(); });
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
  const auto endpoint = known(id);
  return endpoint ? std::optional(endpoint->facts) : std::nullopt;
}

std::string Graph::default_id(DataFlow flow) const {
  std::scoped_lock lock(mutex_);
  const auto found = default_ids_.find(flow);
  return found != default_ids_.end() ? found->second : std::string();
}

void Graph::add(DepartureWatch& watch) { watches_.push_back(&watch); }
void Graph::remove(DepartureWatch& watch) { std::erase(watches_, &watch); }

// ---- The server's objects

void Graph::came(std::uint32_t id, std::string_view type, const spa_dict& properties) {
  if (type == PW_TYPE_INTERFACE_Node) {
    const auto flow = flow_of(text_of(properties, PW_KEY_MEDIA_CLASS));
    if (flow && !text_of(properties, PW_KEY_NODE_NAME).empty()) add_node(id, properties, *flow);
  } else if (type == PW_TYPE_INTERFACE_Device && text_of(properties, PW_KEY_MEDIA_CLASS) == "Audio/Device") {
    cards_.add(registry_, id);
  } else if (type == PW_TYPE_INTERFACE_Metadata && text_of(properties, PW_KEY_METADATA_NAME) == "default") {
    told_names_.follow(id);
  } else if (type == PW_TYPE_INTERFACE_Client) {
    told_names_.ask_later();
  }
}

void Graph::went(std::uint32_t id) {
  if (const auto node = nodes_.find(id); node != nodes_.end()) return remove_node(node);
  cards_.remove(id);
  if (told_names_.follows(id)) manager_left();
}

void Graph::told() {
  {
    std::scoped_lock lock(mutex_);
    known_ = true;
  }
  known_changed_.notify_all();
}

void Graph::lost() {
  while (!nodes_.empty()) remove_node(nodes_.begin());
  cards_.clear();
  told_names_.forget();
  {
    std::scoped_lock lock(mutex_);
    known_ = false;
    ++losses_;
  }
  known_changed_.notify_all();
}

void Graph::manager_left() {
  told_names_.forget();
  for (const auto& [name, own] : own_nodes_) {
    drop(name);
    own->manager_left();
  }
}

// ---- Endpoints

/// With the mutex held; null: none of this id is remembered.
std::shared_ptr<Graph::Endpoint> Graph::known(const std::string& id) const {
  const auto found =
      std::find_if(endpoints_.begin(), endpoints_.end(), [&](const auto& each) { return each->facts.id == id; });
  return found != endpoints_.end() ? *found : nullptr;
}

std::shared_ptr<Graph::Endpoint> Graph::remembered(const std::string& id, DataFlow flow) {
  if (auto endpoint = known(id)) return endpoint;
  endpoints_.push_back(std::make_shared<Endpoint>(dispatcher_, EndpointFacts{id, id, flow, false}));
  callbacks_.notify([id](IMMNotificationClient& client) { client.OnDeviceAdded(id); });
  return endpoints_.back();
}

/// With the mutex held.
void Graph::forget_oldest() {
  const auto is_away = [](const auto& each) { return !each->facts.present; };
  const auto may_go = [&](const auto& each) {
    return is_away(each) && each.use_count() == 1 && !own_nodes_.contains(each->facts.id);
  };
  while (std::count_if(endpoints_.begin(), endpoints_.end(), is_away) > kMostAway) {
    const auto oldest = std::min_element(endpoints_.begin(), endpoints_.end(), [&](const auto& a, const auto& b) {
      return std::tuple(!may_go(a), a->departure) < std::tuple(!may_go(b), b->departure);
    });
    if (!may_go(*oldest)) return;
    callbacks_.notify([id = (*oldest)->facts.id](IMMNotificationClient& client) { client.OnDeviceRemoved(id); });
    dispatcher_.post([gone = *oldest] {});  // calls of its callbacks may be on their way still
    endpoints_.erase(oldest);
  }
}

std::string Graph::name_of(const EndpointFacts& endpoint, const spa_dict& properties) const {
  static const FriendlyNames as_told;
  const FriendlyNames& names = endpoint.flow == DataFlow::capture ? names_ : as_told;
  return names.name_of(std::string(text_of(properties, PW_KEY_NODE_DESCRIPTION)), endpoint.id);
}

void Graph::add_node(std::uint32_t id, const spa_dict& properties, DataFlow flow) {
  const std::string name(text_of(properties, PW_KEY_NODE_NAME));
  std::shared_ptr<Endpoint> endpoint;
  {
    std::scoped_lock lock(mutex_);
    endpoint = remembered(name, flow);
    endpoint->facts.flow = flow;
    endpoint->facts.name = name_of(endpoint->facts, properties);
    endpoint->facts.present = true;
    endpoint->facts.has_failed = false;
    endpoint->priority = number_of(properties, PW_KEY_PRIORITY_SESSION).value_or(0);
    endpoint->node_id = id;
  }
  nodes_[id] = std::make_unique<Node>(*this, id, std::move(endpoint));
  callbacks_.notify([name](IMMNotificationClient& client) { client.OnDeviceStateChanged(name, kDeviceActive); });
  update_default(flow);
}

Graph::Nodes::iterator Graph::node_of(const std::string& id) {
  return std::find_if(nodes_.begin(), nodes_.end(), [&](const auto& each) {
    const Endpoint& endpoint = *each.second->endpoint;
    return endpoint.facts.id == id && endpoint.node_id == each.first;
  });
}

void Graph::remove_node(Nodes::iterator node) {
  const auto endpoint = node->second->endpoint;
  const bool is_it = endpoint->node_id == node->first;  // else a later node of the same name has taken its place
  nodes_.erase(node);
  if (!is_it) return;
  {
    std::scoped_lock lock(mutex_);
    endpoint->facts.present = false;
    endpoint->node_id = SPA_ID_INVALID;
    endpoint->departure = ++departures_;
    forget_oldest();
  }
  const std::string& id = endpoint->facts.id;
  for (DepartureWatch* const watch : watches_) watch->departed(id);
  callbacks_.notify([id](IMMNotificationClient& client) { client.OnDeviceStateChanged(id, kDeviceNotPresent); });
  update_default(endpoint->facts.flow);
}

void Graph::drop(const std::string& id) {
  if (const auto node = node_of(id); node != nodes_.end()) remove_node(node);
}

void Graph::told_properties(Endpoint& endpoint, const spa_dict& properties) {
  const std::string& id = endpoint.facts.id;
  const std::string name = name_of(endpoint.facts, properties);
  {
    std::scoped_lock lock(mutex_);
    endpoint.facts.has_one_channel = tells_one_channel(properties);
    if (endpoint.facts.name == name) return;
    endpoint.facts.name = name;
  }
  callbacks_.notify(
      [id](IMMNotificationClient& client) { client.OnPropertyValueChanged(id, PKEY_Device_FriendlyName); });
}

/// The session manager keeps a device that has failed, as the default too. Its turns may never come again, and with
/// them nobody would see that something else is wanted.
void Graph::told_failure(Endpoint& endpoint, bool has_failed) {
  {
    std::scoped_lock lock(mutex_);
    endpoint.facts.has_failed = has_failed;
  }
  if (!has_failed) return;
  for (DepartureWatch* const watch : watches_) watch->departed(endpoint.facts.id);
}

// ---- Defaults

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
  known_changed_.notify_all();
  if (id.empty()) {
    vacancy_.start(kVacancy);
  } else {
    tell_default(flow, id);
  }
}

void Graph::tell_default(DataFlow flow, const std::string& id) {
  if (std::exchange(told_defaults_[flow], id) == id) return;
  for (const Role role : {Role::console, Role::multimedia, Role::communications}) {
    callbacks_.notify(
        [flow, role, id](IMMNotificationClient& client) { client.OnDefaultDeviceChanged(flow, role, id); });
  }
}

// ---- Volumes

std::optional<NodeVolume> Graph::volume(const std::string& id) const {
  std::scoped_lock lock(mutex_);
  const auto endpoint = known(id);
  return endpoint && endpoint->facts.present ? std::optional(endpoint->volume) : std::nullopt;
}

std::optional<NodeVolume> Graph::latest_volume(const std::string& id) const {
  std::scoped_lock lock(mutex_);
  const auto endpoint = known(id);
  return endpoint ? std::optional(endpoint->volume) : std::nullopt;
}

std::shared_ptr<Graph::VolumeCallbacks> Graph::hold(const std::string& id) {
  std::scoped_lock lock(mutex_);
  const auto endpoint = known(id);
  return endpoint ? std::shared_ptr<VolumeCallbacks>(endpoint, &endpoint->callbacks) : nullptr;
}

bool Graph::set_volume(const std::string& id, const Guid& context, const std::function<void(NodeVolume&)>& change) {
  const Connection::Lock lock(connection_);
  const auto found = node_of(id);
  if (found == nodes_.end()) return false;
  Node& node = *found->second;
  const auto own = own_nodes_.find(id);
  NodeVolume wanted = node.endpoint->volume;
  change(wanted);
  if (wanted != node.endpoint->volume && !node.write_volume(wanted, own != own_nodes_.end() ? own->second : nullptr)) {
    return false;
  }
  tell_volume(*node.endpoint, wanted, context);
  return true;
}

void Graph::told_volume(Endpoint& endpoint, const NodeVolume& volume) {
  if (endpoint.volume != volume) tell_volume(endpoint, volume, Guid{});
}

void Graph::tell_volume(Endpoint& endpoint, const NodeVolume& volume, const Guid& context) {
  {
    std::scoped_lock lock(mutex_);
    endpoint.volume = volume;
  }
  const AUDIO_VOLUME_NOTIFICATION_DATA data{context, volume.muted, volume.scalar()};
  endpoint.callbacks.notify([data](IAudioEndpointVolumeCallback& callback) { callback.OnNotify(&data); });
}

}  // namespace sonivo::pipewire
