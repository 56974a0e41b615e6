#include "relay/endpoint_names.h"

#include <vector>

#include "base/text.h"

namespace sonivo {

Status ReadFriendlyName(Endpoint& endpoint, std::string& name, NameStep* failed_step) {
  const auto fail_at = [&](NameStep step, Status status) {
    if (failed_step != nullptr) *failed_step = step;
    return status;
  };
  std::unique_ptr<PropertyStore> store;
  if (const Status status = endpoint.open_properties(store); failed(status)) {
    return fail_at(NameStep::open_property_store, status);
  }
  PropertyValue value;
  if (const Status status = store->value(PKEY_Device_FriendlyName, value); failed(status)) {
    return fail_at(NameStep::get_value, status);
  }
  if (const auto* text = std::get_if<std::string>(&value)) name = *text;
  return fail_at(NameStep::none, kOk);
}

bool IsVirtualEndpoint(Endpoint& endpoint) {
  std::string name;
  return !failed(ReadFriendlyName(endpoint, name)) && contains(name, kVirtualEndpointName);
}

Status GetVirtualEndpointVolume(Endpoints& endpoints, DataFlow flow, std::shared_ptr<EndpointVolume>& volume) {
  std::vector<std::shared_ptr<Endpoint>> list;
  Status status = endpoints.list(flow, kDeviceActive, list);
  for (const auto& endpoint : list) {
    std::string name;
    status = ReadFriendlyName(*endpoint, name);
    if (!failed(status) && contains(name, kVirtualEndpointName)) status = endpoint->activate_volume(volume);
  }
  return status;
}

Status GetVirtualEndpointPeriod(Endpoints& endpoints, DataFlow flow, std::uint32_t& period_frames) {
  std::vector<std::shared_ptr<Endpoint>> list;
  if (const Status status = endpoints.list(flow, kDeviceActive, list); failed(status)) return status;
  for (const auto& endpoint : list) {
    if (!IsVirtualEndpoint(*endpoint)) continue;
    std::unique_ptr<AudioClient> client;
    if (const Status status = endpoint->activate_audio_client(client); failed(status)) return status;
    return client->current_engine_period(period_frames);
  }
  return status_from_error(error::kNotFound);
}

}  // namespace sonivo
