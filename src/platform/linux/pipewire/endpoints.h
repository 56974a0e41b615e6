#pragma once

#include <memory>
#include <vector>

#include "platform/endpoints.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/graph.h"
#include "platform/linux/pipewire/pacer.h"

namespace sonivo::pipewire {

/// The sources and sinks of the audio server. An endpoint's id is its node's name, which stays the same when the server
/// or the hardware comes back; an object of it works again then, and so does its volume, which can be activated while
/// it is away. The server has one default for all roles.
class PipeWireEndpoints final : public Endpoints {
 public:
  PipeWireEndpoints(Connection& connection, Graph& graph, Pacer& pacer)
      : connection_(connection), graph_(graph), pacer_(pacer) {}

  Status list(DataFlow flow, std::uint32_t state_mask, std::vector<std::shared_ptr<Endpoint>>& endpoints) override;
  Status default_endpoint(DataFlow flow, Role role, std::shared_ptr<Endpoint>& endpoint) override;
  Status register_callback(IMMNotificationClient* client) override { return graph_.callbacks().add(client); }
  Status unregister_callback(IMMNotificationClient* client) override { return graph_.callbacks().remove(client); }

 private:
  Connection& connection_;
  Graph& graph_;
  Pacer& pacer_;
};

}  // namespace sonivo::pipewire
