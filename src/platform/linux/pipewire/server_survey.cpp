#include "platform/linux/pipewire/server_survey.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/dictionary.h"
#include "platform/linux/pipewire/dispatcher.h"
#include "platform/linux/pipewire/graph.h"

namespace sonivo::pipewire {
namespace {

constexpr int kRoundsUntilTold = 2;  // the objects that there are, then what each tells of itself
/// The session manager tells of the defaults by itself, past the server's own answers.
constexpr std::chrono::milliseconds kDefaultsLimit{500};
constexpr std::chrono::milliseconds kDefaultsPause{10};

/// Sees of the server what the model of its endpoints doesn't keep. Members but those under the mutex belong to the
/// loop's thread.
class Onlooker final : private Connection::User {
 public:
  explicit Onlooker(Connection& connection) : connection_(connection) {
    const Connection::Lock lock(connection_);
    connection_.add(*this);
  }
  ~Onlooker() {
    const Connection::Lock lock(connection_);
    connection_.remove(*this);
    if (core_ != nullptr) disconnected();
  }
  Onlooker(const Onlooker&) = delete;
  Onlooker& operator=(const Onlooker&) = delete;

  bool reachable() const {
    const Connection::Lock lock(connection_);
    return core_ != nullptr;
  }
  /// Whether it has told everything within the limit.
  bool wait_until_told(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return told_changed_.wait_for(lock, limit, [this] { return told_; });
  }
  bool has_session_manager() const {
    const Connection::Lock lock(connection_);
    return has_defaults_;
  }
  /// Empty for a node that has none, or isn't there.
  std::string fault_of(const std::string& node_name) const {
    const Connection::Lock lock(connection_);
    for (const auto& [id, node] : nodes_) {
      if (node->name == node_name) return node->fault;
    }
    return {};
  }

 private:
  struct Node {
    explicit Node(std::string_view its_name) : name(its_name) {}
    ~Node() {
      if (proxy == nullptr) return;
      spa_hook_remove(&hook);
      pw_proxy_destroy(proxy);
    }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    const std::string name;
    std::string fault;
    pw_proxy* proxy = nullptr;
    spa_hook hook{};
  };

  void connected(pw_core& core) override {
    static const pw_core_events core_events = [] {
      pw_core_events table{};
      table.version = PW_VERSION_CORE_EVENTS;
      table.done = [](void* self, std::uint32_t id, int) {
        if (id == PW_ID_CORE) static_cast<Onlooker*>(self)->round_done();
      };
      return table;
    }();
    static const pw_registry_events registry_events = [] {
      pw_registry_events table{};
      table.version = PW_VERSION_REGISTRY_EVENTS;
      table.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                        const spa_dict* properties) {
        if (properties != nullptr) static_cast<Onlooker*>(self)->see(id, type, *properties);
      };
      table.global_remove = [](void* self, std::uint32_t id) { static_cast<Onlooker*>(self)->nodes_.erase(id); };
      return table;
    }();
    core_ = &core;
    pw_core_add_listener(core_, &core_hook_, &core_events, this);
    registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry_, &registry_hook_, &registry_events, this);
    pw_core_sync(core_, PW_ID_CORE, 0);
  }

  void disconnected() override {
    nodes_.clear();
    spa_hook_remove(&registry_hook_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
    spa_hook_remove(&core_hook_);
    core_ = nullptr;
    rounds_ = 0;
    has_defaults_ = false;
  }

  void round_done() {
    if (++rounds_ < kRoundsUntilTold) {
      pw_core_sync(core_, PW_ID_CORE, 0);
      return;
    }
    {
      std::scoped_lock lock(mutex_);
      told_ = true;
    }
    told_changed_.notify_all();
  }

  void see(std::uint32_t id, std::string_view type, const spa_dict& properties) {
    // The session manager keeps the defaults; the server alone has none.
    if (type == PW_TYPE_INTERFACE_Metadata && text_of(properties, PW_KEY_METADATA_NAME) == "default") {
      has_defaults_ = true;
    } else if (type == PW_TYPE_INTERFACE_Node) {
      add_node(id, text_of(properties, PW_KEY_NODE_NAME));
    }
  }

  void add_node(std::uint32_t id, std::string_view name) {
    static const pw_node_events events = [] {
      pw_node_events table{};
      table.version = PW_VERSION_NODE_EVENTS;
      table.info = [](void* node, const pw_node_info* info) {
        if ((info->change_mask & PW_NODE_CHANGE_MASK_STATE) == 0) return;
        const char* const why = info->error != nullptr ? info->error : "unknown";
        static_cast<Node*>(node)->fault = info->state == PW_NODE_STATE_ERROR ? why : "";
      };
      return table;
    }();
    auto node = std::make_unique<Node>(name);
    node->proxy = static_cast<pw_proxy*>(pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
    if (node->proxy == nullptr) return;
    pw_proxy_add_object_listener(node->proxy, &node->hook, &events, node.get());
    nodes_[id] = std::move(node);
  }

  Connection& connection_;
  pw_core* core_ = nullptr;
  spa_hook core_hook_{};
  pw_registry* registry_ = nullptr;
  spa_hook registry_hook_{};
  std::map<std::uint32_t, std::unique_ptr<Node>> nodes_;
  bool has_defaults_ = false;
  int rounds_ = 0;

  std::mutex mutex_;
  std::condition_variable told_changed_;
  bool told_ = false;
};

void wait_for_defaults(const Graph& graph) {
  const auto end = std::chrono::steady_clock::now() + kDefaultsLimit;
  const auto known = [&](DataFlow flow) { return !graph.default_id(flow).empty(); };
  while ((!known(DataFlow::capture) || !known(DataFlow::render)) && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kDefaultsPause);
  }
}

}  // namespace

ServerSurvey survey_server(const FriendlyNames& names, std::uint32_t limit_ms, const std::string& remote) {
  Connection connection(remote);
  Dispatcher dispatcher;
  Graph graph(connection, dispatcher, names);
  Onlooker onlooker(connection);  // asks after the graph, so that the graph knows everything by then
  ServerSurvey survey;
  survey.reachable = onlooker.reachable();
  survey.answers = survey.reachable && onlooker.wait_until_told(std::chrono::milliseconds(limit_ms));
  if (!survey.answers) return survey;
  survey.has_session_manager = onlooker.has_session_manager();
  if (survey.has_session_manager) wait_for_defaults(graph);
  for (const DataFlow flow : {DataFlow::capture, DataFlow::render}) {
    for (const EndpointFacts& each : graph.endpoints(flow)) {
      const auto volume = graph.volume(each.id);
      if (!each.present) continue;
      survey.endpoints.push_back(
          {each.id, each.name, flow, volume.has_value() && volume->muted, onlooker.fault_of(each.id)});
    }
  }
  survey.default_microphone = graph.default_id(DataFlow::capture);
  survey.default_speaker = graph.default_id(DataFlow::render);
  return survey;
}

}  // namespace sonivo::pipewire
