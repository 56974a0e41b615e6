#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/endpoints.h"
#include "platform/sim/callbacks.h"
#include "platform/sim/endpoint_model.h"

namespace sonivo::sim {

/// Endpoints of the notebook, in order. All changes are told to the registered clients on the system thread.
class SimEndpoints final : public Endpoints {
 public:
  SimEndpoints(Scheduler& scheduler, Script& script);

  // Endpoints
  Status list(DataFlow flow, std::uint32_t state_mask, std::vector<std::shared_ptr<Endpoint>>& endpoints) override;
  Status default_endpoint(DataFlow flow, Role role, std::shared_ptr<Endpoint>& endpoint) override;
  Status register_callback(IMMNotificationClient* client) override;
  Status unregister_callback(IMMNotificationClient* client) override;

  // Hardware
  void add(EndpointSettings settings);
  /// Takes the endpoint out of the list; its clients fail with kDeviceInvalidated from now on.
  void remove(const std::string& id);
  void set_state(const std::string& id, std::uint32_t state);
  void rename(const std::string& id, const std::string& name);
  /// An empty id means no default.
  void set_default(DataFlow flow, Role role, const std::string& id);
  /// The same for all three roles.
  void set_default(DataFlow flow, const std::string& id);
  /// The endpoint with this id, which must exist.
  EndpointModel& at(const std::string& id);

  // Observations
  const LiveObjects& live() const { return live_; }
  /// Notification clients and volume callbacks now registered.
  std::size_t registered_callbacks();

 private:
  std::shared_ptr<EndpointModel> find(const std::string& id) const;
  EndpointModel& find_existing(const std::string& id) const;

  Scheduler& scheduler_;
  Script& script_;
  LiveObjects live_;
  Callbacks<IMMNotificationClient> callbacks_;
  std::vector<std::shared_ptr<EndpointModel>> endpoints_;
  std::vector<std::shared_ptr<EndpointModel>> removed_;  ///< may still hold callbacks
  std::map<std::pair<DataFlow, Role>, std::string> defaults_;
};

}  // namespace sonivo::sim
