#include "platform/linux/pipewire/server_survey.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <algorithm>
#include <array>
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
#include "platform/linux/pipewire/node_volume.h"
#include "platform/linux/pipewire/registry.h"

namespace sonivo::pipewire {
namespace {

/// Of the service's streams, as audio clients call them.
constexpr std::array<std::string_view, 2> kStreamNodes{"sonivo.microphone", "sonivo.speaker"};

constexpr int kRoundsUntilTold = 2;  // the objects that there are, then what each tells of itself
/// The session manager tells of the defaults by itself, past the server's own answers.
constexpr std::chrono::milliseconds kDefaultsLimit{500};
constexpr std::chrono::milliseconds kDefaultsPause{10};

/// Sees of the server what the model of its endpoints doesn't keep. Members but those under the mutex belong to the
/// loop's thread.
class Onlooker final : private Registry::User {
 public:
  explicit Onlooker(Connection& connection) : connection_(connection), registry_(connection, *this, kRoundsUntilTold) {}

  bool reachable() const {
    const Connection::Lock lock(connection_);
    return registry_.core() != nullptr;
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
      if (node.name == node_name) return node.fault;
    }
    return {};
  }
  std::vector<SurveyedStream> streams() const {
    const Connection::Lock lock(connection_);
    std::vector<SurveyedStream> all;
    for (const auto& [id, node] : nodes_) {
      if (!is_stream(node.name)) continue;
      all.push_back({node.description, node.volume.muted, node.volume.scalar() == 0});
    }
    return all;
  }

 private:
  struct Node {
    std::string name;
    std::string description;
    std::string fault;
    NodeVolume volume;
    std::unique_ptr<BoundObject> object;
  };

  // Registry::User
  void came(std::uint32_t id, std::string_view type, const spa_dict& properties) override {
    // The session manager keeps the defaults; the server alone has none.
    if (type == PW_TYPE_INTERFACE_Metadata && text_of(properties, PW_KEY_METADATA_NAME) == "default") {
      has_defaults_ = true;
    } else if (type == PW_TYPE_INTERFACE_Node) {
      add_node(id, properties);
    }
  }
  void went(std::uint32_t id) override { nodes_.erase(id); }
  void told() override {
    {
      std::scoped_lock lock(mutex_);
      told_ = true;
    }
    told_changed_.notify_all();
  }
  void lost() override {
    nodes_.clear();
    has_defaults_ = false;
  }

  static bool is_stream(std::string_view name) {
    return std::find(kStreamNodes.begin(), kStreamNodes.end(), name) != kStreamNodes.end();
  }

  void add_node(std::uint32_t id, const spa_dict& properties) {
    static const pw_node_events events = [] {
      pw_node_events table{};
      table.version = PW_VERSION_NODE_EVENTS;
      table.info = [](void* node, const pw_node_info* info) {
        if ((info->change_mask & PW_NODE_CHANGE_MASK_STATE) == 0) return;
        const char* const why = info->error != nullptr ? info->error : "unknown";
        static_cast<Node*>(node)->fault = info->state == PW_NODE_STATE_ERROR ? why : "";
      };
      table.param = [](void* node, int, std::uint32_t, std::uint32_t, std::uint32_t, const spa_pod* props) {
        if (props != nullptr) read_volume(*props, static_cast<Node*>(node)->volume);
      };
      return table;
    }();
    Node& node = nodes_[id];
    node.name = text_of(properties, PW_KEY_NODE_NAME);
    node.description = text_of(properties, PW_KEY_NODE_DESCRIPTION);
    node.object = std::make_unique<BoundObject>(registry_, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &events, &node);
    std::uint32_t wanted = SPA_PARAM_Props;
    if (auto* const bound = node.object->get<pw_node>(); bound != nullptr && is_stream(node.name)) {
      pw_node_subscribe_params(bound, &wanted, 1);
    }
  }

  Connection& connection_;
  std::map<std::uint32_t, Node> nodes_;
  bool has_defaults_ = false;

  std::mutex mutex_;
  std::condition_variable told_changed_;
  bool told_ = false;

  Registry registry_;
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
      survey.endpoints.push_back({each.id, each.name, flow, volume && volume->muted, onlooker.fault_of(each.id),
                                  volume && volume->scalar() == 0});
    }
  }
  survey.streams = onlooker.streams();
  survey.default_microphone = graph.default_id(DataFlow::capture);
  survey.default_speaker = graph.default_id(DataFlow::render);
  return survey;
}

}  // namespace sonivo::pipewire
