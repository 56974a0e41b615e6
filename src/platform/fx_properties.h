#pragma once

#include <memory>
#include <string>

#include "base/event.h"
#include "base/guid.h"
#include "base/status.h"
#include "platform/endpoints.h"
#include "platform/properties.h"

namespace sonivo {

/// Watch over the effect properties of one capture endpoint.
class FxWatch {
 public:
  virtual ~FxWatch() = default;
  /// Asks for `event` to be set once, at the next change of any value. A change since the previous signal, or at first
  /// since the watch was opened, counts and sets it at once.
  virtual Status arm(Event* event) = 0;
};

/// Reads stored values past the effect store itself.
class PolicyConfig {
 public:
  virtual ~PolicyConfig() = default;
  /// `effect_store`: the endpoint's effect properties; otherwise its device properties.
  virtual Status property_value(const std::string& id, bool effect_store, const PropertyKey& key,
                                PropertyValue& value) = 0;
};

/// Values that the audio driver's set-up stored with a capture endpoint, keyed by format GUID and pid.
class FxProperties {
 public:
  virtual ~FxProperties() = default;
  /// The per-effect store of the signed-in user; fails on machines that have none.
  virtual Status open_user_store(Endpoint& endpoint, const Guid& effect, std::unique_ptr<PropertyStore>& store) = 0;
  virtual Status policy_config(std::unique_ptr<PolicyConfig>& config) = 0;
  /// Opens the store of the endpoint with this GUID text for watching.
  virtual Error open_watch(const std::string& endpoint_guid, std::unique_ptr<FxWatch>& watch) = 0;
};

}  // namespace sonivo
