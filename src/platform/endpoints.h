#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/status.h"
#include "platform/audio_client.h"
#include "platform/endpoint_volume.h"
#include "platform/properties.h"
#include "platform/unknown.h"

namespace sonivo {

enum class DataFlow : std::uint32_t { render = 0, capture = 1 };
enum class Role : std::uint32_t { console = 0, multimedia = 1, communications = 2 };

/// State of an endpoint; lists are asked for with a mask of these.
inline constexpr std::uint32_t kDeviceActive = 1;
inline constexpr std::uint32_t kDeviceDisabled = 2;
inline constexpr std::uint32_t kDeviceNotPresent = 4;
inline constexpr std::uint32_t kDeviceUnplugged = 8;

/// One audio endpoint. Objects are snapshots of identity: they stay valid, and start to fail, when the hardware goes.
class Endpoint {
 public:
  virtual ~Endpoint() = default;
  virtual Status id(std::string& id) = 0;
  virtual Status open_properties(std::unique_ptr<PropertyStore>& store) = 0;
  virtual Status activate_audio_client(std::unique_ptr<AudioClient>& client) = 0;
  virtual Status activate_volume(std::shared_ptr<EndpointVolume>& volume) = 0;
};

/// Calls come on a thread of the machine's own. Ids are empty when there is no device.
class IMMNotificationClient : public IUnknown {
 public:
  virtual Status OnDeviceStateChanged(const std::string& id, std::uint32_t state) = 0;
  virtual Status OnDeviceAdded(const std::string& id) = 0;
  virtual Status OnDeviceRemoved(const std::string& id) = 0;
  virtual Status OnDefaultDeviceChanged(DataFlow flow, Role role, const std::string& id) = 0;
  virtual Status OnPropertyValueChanged(const std::string& id, const PropertyKey& key) = 0;

 protected:
  ~IMMNotificationClient() = default;
};

class Endpoints {
 public:
  virtual ~Endpoints() = default;
  /// Endpoints of a flow in the states of the mask, in the machine's order.
  virtual Status list(DataFlow flow, std::uint32_t state_mask, std::vector<std::shared_ptr<Endpoint>>& endpoints) = 0;
  virtual Status default_endpoint(DataFlow flow, Role role, std::shared_ptr<Endpoint>& endpoint) = 0;
  virtual Status register_callback(IMMNotificationClient* client) = 0;
  /// Afterwards no call is made, and none is under way unless made by the calling thread.
  virtual Status unregister_callback(IMMNotificationClient* client) = 0;
};

}  // namespace sonivo
