#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "platform/fx_properties.h"
#include "platform/fx_requests.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

using control::kCaptureEffect;
using control::kEndpointGuidKey;

/// Where a value is kept.
enum class FxHome { user_store, effect_store, device_properties };

/// Effect properties in memory, by home, endpoint id and key.
class SimFxProperties final : public FxProperties {
 public:
  /// `user_store`: whether the machine has per-effect stores.
  SimFxProperties(Scheduler& scheduler, Script& script, bool user_store);

  Status open_user_store(Endpoint& endpoint, const Guid& effect, std::unique_ptr<PropertyStore>& store) override;
  Status policy_config(std::unique_ptr<PolicyConfig>& config) override;
  Error open_watch(const std::string& endpoint_guid, std::unique_ptr<FxWatch>& watch) override;

  /// Changes a value; all but device properties wake the endpoint's armed watches. An empty value removes it.
  void set(FxHome home, const std::string& id, const PropertyKey& key, PropertyValue value);
  /// The same in the user store and the effect store, as a set-up writes it for either kind of machine.
  void set_effect(const std::string& id, const PropertyKey& key, PropertyValue value);
  /// Overrides for one endpoint whether it has a user store.
  void set_user_store(const std::string& id, bool present);
  /// Gives the endpoint its GUID text, as a value too.
  void set_endpoint_guid(const std::string& id, const std::string& guid);

  std::size_t live_objects() const { return static_cast<std::size_t>(live_.load()); }

 private:
  class UserStore;
  class Policy;
  class Watch;
  PropertyValue value(FxHome home, const std::string& id, const PropertyKey& key) const;

  Scheduler& scheduler_;
  Script& script_;
  const bool user_store_;
  std::atomic<int> live_ = 0;
  std::map<std::tuple<FxHome, std::string, PropertyKey>, PropertyValue> values_;
  std::map<std::string, bool> user_store_overrides_;
  std::map<std::string, std::string> guids_;  ///< endpoint id by lower-case GUID text
  std::vector<Watch*> watches_;
};

}  // namespace sonivo::sim
