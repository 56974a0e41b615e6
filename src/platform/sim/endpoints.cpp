#include "platform/sim/endpoints.h"

#include <algorithm>
#include <stdexcept>

#include "platform/sim/endpoint_objects.h"

namespace sonivo::sim {

SimEndpoints::SimEndpoints(Scheduler& scheduler, Script& script)
    : scheduler_(scheduler), script_(script), callbacks_(scheduler) {}

Status SimEndpoints::list(DataFlow flow, std::uint32_t state_mask, std::vector<std::shared_ptr<Endpoint>>& endpoints) {
  if (const auto failure = script_.enter(Step::endpoints_list)) return static_cast<Status>(*failure);
  std::scoped_lock lock(scheduler_.mutex());
  endpoints.clear();
  for (const auto& model : endpoints_) {
    const EndpointSettings& settings = model->settings;
    if (settings.flow == flow && (settings.state & state_mask) != 0) endpoints.push_back(make_endpoint(model));
  }
  return kOk;
}

Status SimEndpoints::default_endpoint(DataFlow flow, Role role, std::shared_ptr<Endpoint>& endpoint) {
  if (const auto failure = script_.enter(Step::endpoints_default)) return static_cast<Status>(*failure);
  std::scoped_lock lock(scheduler_.mutex());
  const auto model = find(defaults_[{flow, role}]);
  if (!model || !model->usable()) return status_from_error(error::kNotFound);
  endpoint = make_endpoint(model);
  return kOk;
}

Status SimEndpoints::register_callback(IMMNotificationClient* client) {
  if (const auto failure = script_.enter(Step::endpoints_register)) return static_cast<Status>(*failure);
  return callbacks_.add(client);
}

Status SimEndpoints::unregister_callback(IMMNotificationClient* client) {
  if (const auto failure = script_.enter(Step::endpoints_unregister)) return static_cast<Status>(*failure);
  return callbacks_.remove(client);
}

void SimEndpoints::add(EndpointSettings settings) {
  auto model = std::make_shared<EndpointModel>(scheduler_, script_, live_, std::move(settings));
  std::scoped_lock lock(scheduler_.mutex());
  endpoints_.push_back(model);
  callbacks_.notify([id = model->settings.id](IMMNotificationClient& client) { client.OnDeviceAdded(id); });
}

void SimEndpoints::remove(const std::string& id) {
  std::scoped_lock lock(scheduler_.mutex());
  EndpointModel& model = find_existing(id);
  model.present = false;
  model.invalidate_streams();
  const auto place =
      std::find_if(endpoints_.begin(), endpoints_.end(), [&](auto& each) { return each.get() == &model; });
  removed_.push_back(*place);
  endpoints_.erase(place);
  callbacks_.notify([id](IMMNotificationClient& client) { client.OnDeviceRemoved(id); });
}

void SimEndpoints::set_state(const std::string& id, std::uint32_t state) {
  std::scoped_lock lock(scheduler_.mutex());
  EndpointModel& model = find_existing(id);
  model.settings.state = state;
  if (!model.usable()) model.invalidate_streams();
  callbacks_.notify([id, state](IMMNotificationClient& client) { client.OnDeviceStateChanged(id, state); });
}

void SimEndpoints::rename(const std::string& id, const std::string& name) {
  std::scoped_lock lock(scheduler_.mutex());
  find_existing(id).settings.name = name;
  callbacks_.notify(
      [id](IMMNotificationClient& client) { client.OnPropertyValueChanged(id, PKEY_Device_FriendlyName); });
}

void SimEndpoints::set_default(DataFlow flow, Role role, const std::string& id) {
  std::scoped_lock lock(scheduler_.mutex());
  defaults_[{flow, role}] = id;
  callbacks_.notify([flow, role, id](IMMNotificationClient& client) { client.OnDefaultDeviceChanged(flow, role, id); });
}

void SimEndpoints::set_default(DataFlow flow, const std::string& id) {
  for (const Role role : {Role::console, Role::multimedia, Role::communications}) set_default(flow, role, id);
}

EndpointModel& SimEndpoints::at(const std::string& id) {
  std::scoped_lock lock(scheduler_.mutex());
  return find_existing(id);
}

std::size_t SimEndpoints::registered_callbacks() {
  std::scoped_lock lock(scheduler_.mutex());
  std::size_t count = callbacks_.size();
  for (const auto& model : endpoints_) count += model->volume().callbacks().size();
  for (const auto& model : removed_) count += model->volume().callbacks().size();
  return count;
}

std::shared_ptr<EndpointModel> SimEndpoints::find(const std::string& id) const {
  const auto found =
      std::find_if(endpoints_.begin(), endpoints_.end(), [&](const auto& model) { return model->settings.id == id; });
  return found != endpoints_.end() ? *found : nullptr;
}

EndpointModel& SimEndpoints::find_existing(const std::string& id) const {
  const auto model = find(id);
  if (!model) throw std::invalid_argument("no endpoint " + id);
  return *model;
}

}  // namespace sonivo::sim
