#include "platform/linux/pipewire/endpoints.h"

#include <string>
#include <utility>

#include "platform/client_status.h"
#include "platform/linux/pipewire/audio_client.h"
#include "platform/linux/pipewire/volume.h"

namespace sonivo::pipewire {
namespace {

class NodeProperties final : public PropertyStore {
 public:
  NodeProperties(Graph& graph, std::string id) : graph_(graph), id_(std::move(id)) {}

  Status value(const PropertyKey& key, PropertyValue& value) override {
    const auto facts = graph_.find(id_);
    if (!facts) return kDeviceInvalidated;
    value = key == PKEY_Device_FriendlyName ? PropertyValue(facts->name) : PropertyValue();
    return kOk;
  }

 private:
  Graph& graph_;
  const std::string id_;
};

class NodeEndpoint final : public Endpoint {
 public:
  NodeEndpoint(Connection& connection, Graph& graph, Pacer& pacer, std::string id)
      : connection_(connection), graph_(graph), pacer_(pacer), id_(std::move(id)), held_(graph_.hold(id_)) {}

  Status id(std::string& id) override {
    id = id_;
    return kOk;
  }
  Status open_properties(std::unique_ptr<PropertyStore>& store) override {
    store = std::make_unique<NodeProperties>(graph_, id_);
    return kOk;
  }
  Status activate_audio_client(std::unique_ptr<AudioClient>& client) override {
    const auto facts = graph_.find(id_);
    if (!facts || !facts->present || facts->has_failed) return kDeviceInvalidated;
    client = make_audio_client(connection_, graph_, pacer_, *facts);
    return kOk;
  }
  Status activate_volume(std::shared_ptr<EndpointVolume>& volume) override {
    volume = make_volume(graph_, id_);
    return kOk;
  }

 private:
  Connection& connection_;
  Graph& graph_;
  Pacer& pacer_;
  const std::string id_;
  const std::shared_ptr<const void> held_;
};

}  // namespace

Status PipeWireEndpoints::list(DataFlow flow, std::uint32_t state_mask,
                               std::vector<std::shared_ptr<Endpoint>>& endpoints) {
  endpoints.clear();
  for (const EndpointFacts& each : graph_.endpoints(flow)) {
    const std::uint32_t state = each.present ? kDeviceActive : kDeviceNotPresent;
    if ((state & state_mask) != 0) {
      endpoints.push_back(std::make_shared<NodeEndpoint>(connection_, graph_, pacer_, each.id));
    }
  }
  return kOk;
}

Status PipeWireEndpoints::default_endpoint(DataFlow flow, Role, std::shared_ptr<Endpoint>& endpoint) {
  const auto facts = graph_.find(graph_.default_id(flow));
  if (!facts || !facts->present || facts->flow != flow) return status_from_error(error::kNotFound);
  endpoint = std::make_shared<NodeEndpoint>(connection_, graph_, pacer_, facts->id);
  return kOk;
}

}  // namespace sonivo::pipewire
