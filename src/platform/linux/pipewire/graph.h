#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/endpoints.h"
#include "platform/linux/pipewire/callbacks.h"
#include "platform/linux/pipewire/card_route.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/friendly_names.h"
#include "platform/linux/pipewire/node_volume.h"
#include "platform/linux/pipewire/volume_request.h"

namespace sonivo::pipewire {

/// What is known of one endpoint: a node by its name, whether or not it is there now.
struct EndpointFacts {
  std::string id;  ///< the node's name
  std::string name;
  DataFlow flow = DataFlow::capture;
  bool present = false;
  bool has_one_channel = false;
};

/// Whoever wants to know at once that an endpoint has gone. Called on the loop's thread, with the loop locked.
class DepartureWatch {
 public:
  virtual void departed(const std::string& id) = 0;

 protected:
  ~DepartureWatch() = default;
};

/// A node of this process. The server hears nothing else of a client while that client's request to change a node is
/// under way, so that the answer of one's own node would never arrive: it is changed here instead. Nodes of others are
/// changed by a VolumeRequest.
class OwnNode {
 public:
  /// Any thread, with the loop locked.
  virtual void set_volume(const NodeVolume& volume) = 0;
  /// Loop's thread, with the loop locked: the session manager has gone. The next one waits without end for the ports of
  /// a node that had them before, and links nothing meanwhile: the node has to be made anew. Its
  /// endpoint has gone until then.
  virtual void manager_left() = 0;

 protected:
  ~OwnNode() = default;
};

/// The model of the server's endpoints and defaults: written on the loop's thread, read on any. An endpoint that has
/// gone is remembered, so that what was read of it still holds when it comes back.
class Graph final : private Connection::User {
 public:
  Graph(Connection& connection, Dispatcher& dispatcher, FriendlyNames names);
  ~Graph();

  /// Waits until the server's endpoints and defaults are known, or there is no server, or the time is up.
  void wait_until_known(std::uint32_t limit_ms);

  std::vector<EndpointFacts> endpoints(DataFlow flow) const;
  std::optional<EndpointFacts> find(const std::string& id) const;
  /// Never an OwnNode's. Empty: there is none.
  std::string default_id(DataFlow flow) const;
  Callbacks<IMMNotificationClient>& callbacks() { return callbacks_; }

  /// With the loop locked.
  void add(DepartureWatch& watch);
  void remove(DepartureWatch& watch);
  void add(const std::string& id, OwnNode& node) { own_nodes_[id] = &node; }
  void remove(const std::string& id) { own_nodes_.erase(id); }

  /// The volume of an endpoint; none while it isn't there.
  std::optional<NodeVolume> volume(const std::string& id) const;
  /// As it was when the endpoint was last there; none when it never was.
  std::optional<NodeVolume> latest_volume(const std::string& id) const;
  /// Takes effect in the model at once, and is told to the callbacks with the context; taken back, and told so, where
  /// the node's owner doesn't answer for two seconds. False: the endpoint isn't there, or the server takes no request.
  bool set_volume(const std::string& id, const Guid& context, const std::function<void(NodeVolume&)>& change);
  /// Null for an endpoint that was never there.
  Callbacks<IAudioEndpointVolumeCallback>* volume_callbacks(const std::string& id);

 private:
  struct Node;
  struct Card;
  struct Endpoint;
  using Nodes = std::map<std::uint32_t, std::unique_ptr<Node>>;

  // Connection::User
  void connected(pw_core& core) override;
  void disconnected() override;

  void global_added(std::uint32_t id, const char* type, const spa_dict* properties);
  void global_removed(std::uint32_t id);
  /// Tables have names of microphones alone.
  std::string name_of(const EndpointFacts& endpoint, const spa_dict& properties) const;
  void add_node(std::uint32_t id, const spa_dict& properties, DataFlow flow);
  Nodes::iterator node_of(const std::string& id);
  void remove_node(Nodes::iterator node);
  void add_card(std::uint32_t id);
  bool write_volume(Node& node, const NodeVolume& before, const NodeVolume& wanted);
  bool request_volume(Node& node, const NodeVolume& before, const NodeVolume& wanted);
  void volume_answered(Node& node, VolumeRequest::Outcome outcome);
  void await_settled(Node& node);
  void ask_for_defaults();
  void ask_for_defaults_later();
  void leave_defaults();
  void forget_defaults();
  int default_changed(const char* key, const char* value);
  void set_default(DataFlow flow, const std::string& name);
  std::string default_there(DataFlow flow);
  void update_default(DataFlow flow);
  void node_props(Node& node, const spa_dict& properties);
  void node_param(Node& node, const spa_pod& param);
  void volume_settled(Node& node);
  void adopt_volume(Endpoint& endpoint, const NodeVolume& volume);
  void synced();
  void set_known();
  Endpoint& remembered(const std::string& id, DataFlow flow);

  Connection& connection_;
  Dispatcher& dispatcher_;
  const FriendlyNames names_;
  Callbacks<IMMNotificationClient> callbacks_;

  // Of the loop's thread.
  pw_core* core_ = nullptr;
  spa_hook core_hook_{};
  pw_registry* registry_ = nullptr;
  spa_hook registry_hook_{};
  pw_metadata* defaults_ = nullptr;
  std::uint32_t defaults_id_ = SPA_ID_INVALID;
  spa_hook defaults_hook_{};
  Nodes nodes_;
  spa_source* ask_again_ = nullptr;
  bool asks_again_ = false;  ///< the timer runs
  std::map<std::uint32_t, std::unique_ptr<Card>> cards_;
  std::vector<DepartureWatch*> watches_;
  std::map<std::string, OwnNode*> own_nodes_;
  int rounds_ = 0;  ///< of questions and answers since the connection; after two the server has told everything

  mutable std::mutex mutex_;
  std::condition_variable known_changed_;
  bool known_ = false;
  std::vector<std::unique_ptr<Endpoint>> endpoints_;  ///< in the order of their first appearance; none ever goes
  std::map<DataFlow, std::string> default_names_;     ///< as the server has them
  std::map<DataFlow, std::string> foreign_names_;     ///< the latest of those that weren't own nodes
  std::map<DataFlow, std::string> default_ids_;       ///< those that are there
};

}  // namespace sonivo::pipewire
