#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/endpoints.h"
#include "platform/linux/pipewire/card_route.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/node_volume.h"
#include "platform/linux/pipewire/volume_request.h"

namespace sonivo::pipewire {

/// A node of this process, whose volume is set at once, here. Asked for by a VolumeRequest, as for nodes of others, it
/// would take one more connection, and the request would only come back to this process.
class OwnNode {
 public:
  /// Any thread, with the loop locked.
  virtual void set_volume(const NodeVolume& volume) = 0;
  /// Loop's thread, with the loop locked: the session manager has gone. The next one would wait without end for the
  /// ports of a node that had them before, and link nothing meanwhile, so that the node has to be made anew. Its
  /// endpoint has gone until then.
  virtual void manager_left() = 0;

 protected:
  ~OwnNode() = default;
};

/// A node that is there: what its owner tells of it, and how its volume is changed. With the loop locked, all of it.
class GraphNode {
 public:
  /// What outlives the node.
  struct Endpoint {
    const std::string& id;
    DataFlow flow;
    const NodeVolume& volume;  ///< as it is told to be at present
  };

  GraphNode(Connection& connection, const Registry& registry, const CardRoutes& cards, std::uint32_t id,
            Endpoint endpoint);
  virtual ~GraphNode();
  GraphNode(const GraphNode&) = delete;
  GraphNode& operator=(const GraphNode&) = delete;

  /// Has the owner take what differs from the volume at present; where it doesn't within two seconds, that one is told
  /// again. `own`: the owner where it is of this process, else null. False: the server takes no request.
  bool write_volume(const NodeVolume& wanted, OwnNode* own);

 protected:
  virtual void told_properties(const spa_dict& properties) = 0;
  /// Whether it can't run, as when its device can't be opened.
  virtual void told_failure(bool has_failed) = 0;
  /// Not while the owner may not know yet what was written.
  virtual void told_volume(const NodeVolume& volume) = 0;

 private:
  static const pw_node_events& node_events();
  static constexpr int kNoWrite = -1;

  void told_info(const pw_node_info& info);
  void told_param(const spa_pod& props);
  bool request(const NodeVolume& wanted);
  void answered(VolumeRequest::Outcome outcome);
  void await_settled();
  void settled();

  Connection& connection_;
  const CardRoutes& cards_;
  const std::uint32_t id_;
  const Endpoint endpoint_;
  const BoundObject node_;
  spa_hook proxy_hook_{};
  std::uint32_t card_ = SPA_ID_INVALID;      ///< the sound card that it belongs to
  std::optional<std::int32_t> card_device_;  ///< which of the card's nodes it is
  bool writing_ = false;                     ///< what is told meanwhile may be older than what is written
  std::optional<NodeVolume> told_meanwhile_;
  NodeVolume before_write_;
  std::unique_ptr<VolumeRequest> request_;  ///< under way
  int latest_write_ = kNoWrite;             ///< number of the answer that ends the latest write, once its request has
};

}  // namespace sonivo::pipewire
