#pragma once

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
#include "platform/linux/pipewire/default_names.h"
#include "platform/linux/pipewire/friendly_names.h"
#include "platform/linux/pipewire/graph_node.h"
#include "platform/linux/pipewire/loop_timer.h"
#include "platform/linux/pipewire/registry.h"

namespace sonivo::pipewire {

/// What is known of one endpoint: a node by its name, whether or not it is there now.
struct EndpointFacts {
  std::string id;  ///< the node's name
  std::string name;
  DataFlow flow = DataFlow::capture;
  bool present = false;
  bool has_failed = false;  ///< and can't be opened until its owner has let it rest
  bool has_one_channel = false;
};

/// Whoever wants to know at once that an endpoint has gone, or has failed. Called on the loop's thread, with the loop
/// locked.
class DepartureWatch {
 public:
  virtual void departed(const std::string& id) = 0;

 protected:
  ~DepartureWatch() = default;
};

/// The model of the server's endpoints and defaults: written on the loop's thread, read on any. An endpoint that has
/// gone is remembered, so that what was read of it still holds when it comes back: the latest 64, and those that
/// somebody holds.
class Graph final : private Registry::User {
 public:
  Graph(Connection& connection, Dispatcher& dispatcher, FriendlyNames names);
  ~Graph();

  /// Waits until the server's endpoints and defaults are known, or there is no server, or the time is up.
  void wait_until_known(std::uint32_t limit_ms);
  /// Waits until there is a default of that flow, or the time is up.
  void wait_for_default(DataFlow flow, std::uint32_t limit_ms);

  std::vector<EndpointFacts> endpoints(DataFlow flow) const;
  std::optional<EndpointFacts> find(const std::string& id) const;
  /// Never an OwnNode's. Empty: there is none, which the callbacks are told once it has been so for four seconds: a
  /// session manager that is restarted has the devices again after one or two, and nothing is another then.
  std::string default_id(DataFlow flow) const;
  Callbacks<IMMNotificationClient>& callbacks() { return callbacks_; }

  /// With the loop locked.
  void add(DepartureWatch& watch);
  void remove(DepartureWatch& watch);
  void add(const std::string& id, OwnNode& node) { own_nodes_[id] = &node; }
  void remove(const std::string& id) { own_nodes_.erase(id); }
  /// Has the endpoint of a node that is made anew go first, whatever the server lists still.
  void drop(const std::string& id);

  /// The volume of an endpoint; none while it isn't there.
  std::optional<NodeVolume> volume(const std::string& id) const;
  /// As it was when the endpoint was last there; none when it never was.
  std::optional<NodeVolume> latest_volume(const std::string& id) const;
  /// Takes effect in the model at once, and is told to the callbacks with the context; taken back, and told so, where
  /// the node's owner doesn't answer for two seconds. False: the endpoint isn't there, or the server takes no request.
  bool set_volume(const std::string& id, const Guid& context, const std::function<void(NodeVolume&)>& change);
  using VolumeCallbacks = Callbacks<IAudioEndpointVolumeCallback>;
  /// Who has them holds the endpoint. Null for one that isn't remembered.
  std::shared_ptr<VolumeCallbacks> hold(const std::string& id);

 private:
  struct Endpoint;
  class Node;
  using Nodes = std::map<std::uint32_t, std::unique_ptr<Node>>;

  // Registry::User
  void came(std::uint32_t id, std::string_view type, const spa_dict& properties) override;
  void went(std::uint32_t id) override;
  void told() override;
  void lost() override;

  /// Tables have names of microphones alone.
  std::string name_of(const EndpointFacts& endpoint, const spa_dict& properties) const;
  void add_node(std::uint32_t id, const spa_dict& properties, DataFlow flow);
  Nodes::iterator node_of(const std::string& id);
  void remove_node(Nodes::iterator node);
  void manager_left();
  void set_default(DataFlow flow, const std::string& name);
  std::string default_there(DataFlow flow);
  void update_default(DataFlow flow);
  void tell_default(DataFlow flow, const std::string& id);
  void told_properties(Endpoint& endpoint, const spa_dict& properties);
  void told_failure(Endpoint& endpoint, bool has_failed);
  void told_volume(Endpoint& endpoint, const NodeVolume& volume);
  void tell_volume(Endpoint& endpoint, const NodeVolume& volume, const Guid& context);
  std::shared_ptr<Endpoint> known(const std::string& id) const;
  std::shared_ptr<Endpoint> remembered(const std::string& id, DataFlow flow);
  void forget_oldest();

  Connection& connection_;
  Dispatcher& dispatcher_;
  const FriendlyNames names_;
  Callbacks<IMMNotificationClient> callbacks_;

  // Of the loop's thread.
  Nodes nodes_;
  CardRoutes cards_;
  std::vector<DepartureWatch*> watches_;
  std::map<std::string, OwnNode*> own_nodes_;
  std::map<DataFlow, std::string> told_defaults_;  ///< to the callbacks

  mutable std::mutex mutex_;
  std::condition_variable known_changed_;  ///< and the defaults
  bool known_ = false;
  std::uint64_t losses_ = 0;                          ///< of the server, so far
  std::vector<std::shared_ptr<Endpoint>> endpoints_;  ///< in the order of their first appearance
  std::uint64_t departures_ = 0;                      ///< so far
  std::map<DataFlow, std::string> default_names_;     ///< as the server has them
  std::map<DataFlow, std::string> foreign_names_;     ///< the latest of those that weren't own nodes
  std::map<DataFlow, std::string> default_ids_;       ///< those that are there

  LoopTimer vacancy_;
  DefaultNames told_names_;
  Registry registry_;
};

}  // namespace sonivo::pipewire
