#include "platform/sim/fx.h"

#include <utility>

#include "base/text.h"
#include "platform/sim/endpoint_objects.h"
#include "platform/sim/live_mark.h"

namespace sonivo::sim {

class SimFxProperties::UserStore final : public PropertyStore {
 public:
  UserStore(SimFxProperties& fx, std::string id) : fx_(fx), id_(std::move(id)), mark_(fx.live_) {}

  Status value(const PropertyKey& key, PropertyValue& value) override {
    if (const auto failure = fx_.script_.enter(Step::fx_user_value)) return static_cast<Status>(*failure);
    value = fx_.value(FxHome::user_store, id_, key);
    return kOk;
  }

 private:
  SimFxProperties& fx_;
  const std::string id_;
  LiveMark mark_;
};

class SimFxProperties::Policy final : public PolicyConfig {
 public:
  explicit Policy(SimFxProperties& fx) : fx_(fx), mark_(fx.live_) {}

  Status property_value(const std::string& id, bool effect_store, const PropertyKey& key,
                        PropertyValue& value) override {
    if (const auto failure = fx_.script_.enter(Step::fx_policy_value)) return static_cast<Status>(*failure);
    value = fx_.value(effect_store ? FxHome::effect_store : FxHome::device_properties, id, key);
    return kOk;
  }

 private:
  SimFxProperties& fx_;
  LiveMark mark_;
};

class SimFxProperties::Watch final : public FxWatch {
 public:
  // With the mutex held.
  Watch(SimFxProperties& fx, std::string its_id) : id(std::move(its_id)), fx_(fx), mark_(fx.live_) {
    fx_.watches_.push_back(this);
  }
  ~Watch() override {
    std::scoped_lock lock(fx_.scheduler_.mutex());
    std::erase(fx_.watches_, this);
  }

  Status arm(Event* event) override {
    if (const auto failure = fx_.script_.enter(Step::fx_arm)) return static_cast<Status>(*failure);
    if (event == nullptr) return kInvalidArgument;
    std::scoped_lock lock(fx_.scheduler_.mutex());
    armed_ = static_cast<SimEvent*>(event);
    if (std::exchange(untold_, false)) fire();
    return kOk;
  }

  // With the mutex held.
  void fire() {
    if (armed_ != nullptr) {
      std::exchange(armed_, nullptr)->signal();
    } else {
      untold_ = true;
    }
  }

  const std::string id;

 private:
  SimFxProperties& fx_;
  SimEvent* armed_ = nullptr;
  bool untold_ = false;  ///< a change came while nothing was armed
  LiveMark mark_;
};

SimFxProperties::SimFxProperties(Scheduler& scheduler, Script& script, bool user_store)
    : scheduler_(scheduler), script_(script), user_store_(user_store) {}

Status SimFxProperties::open_user_store(Endpoint& endpoint, const Guid& effect, std::unique_ptr<PropertyStore>& store) {
  if (const auto failure = script_.enter(Step::fx_user_store)) return static_cast<Status>(*failure);
  const std::string& id = id_of(endpoint);
  std::scoped_lock lock(scheduler_.mutex());
  const auto own = user_store_overrides_.find(id);
  const bool present = own != user_store_overrides_.end() ? own->second : user_store_;
  if (!present || effect != kCaptureEffect) return kNoInterface;
  store = std::make_unique<UserStore>(*this, id);
  return kOk;
}

Status SimFxProperties::policy_config(std::unique_ptr<PolicyConfig>& config) {
  if (const auto failure = script_.enter(Step::fx_policy_config)) return static_cast<Status>(*failure);
  config = std::make_unique<Policy>(*this);
  return kOk;
}

Error SimFxProperties::open_watch(const std::string& endpoint_guid, std::unique_ptr<FxWatch>& watch) {
  if (const auto failure = script_.enter(Step::fx_open_watch)) return *failure;
  std::scoped_lock lock(scheduler_.mutex());
  const auto found = guids_.find(to_lower_ascii(endpoint_guid));
  if (found == guids_.end()) return error::kFileNotFound;
  watch = std::make_unique<Watch>(*this, found->second);
  return error::kNone;
}

PropertyValue SimFxProperties::value(FxHome home, const std::string& id, const PropertyKey& key) const {
  std::scoped_lock lock(scheduler_.mutex());
  const auto found = values_.find({home, id, key});
  return found != values_.end() ? found->second : PropertyValue();
}

void SimFxProperties::set(FxHome home, const std::string& id, const PropertyKey& key, PropertyValue value) {
  std::scoped_lock lock(scheduler_.mutex());
  values_[{home, id, key}] = std::move(value);
  if (home == FxHome::device_properties) return;
  for (Watch* watch : watches_) {
    if (watch->id == id) watch->fire();
  }
}

void SimFxProperties::set_effect(const std::string& id, const PropertyKey& key, PropertyValue value) {
  set(FxHome::user_store, id, key, value);
  set(FxHome::effect_store, id, key, std::move(value));
}

void SimFxProperties::set_user_store(const std::string& id, bool present) {
  std::scoped_lock lock(scheduler_.mutex());
  user_store_overrides_[id] = present;
}

void SimFxProperties::set_endpoint_guid(const std::string& id, const std::string& guid) {
  {
    std::scoped_lock lock(scheduler_.mutex());
    guids_[to_lower_ascii(guid)] = id;
  }
  set(FxHome::effect_store, id, kEndpointGuidKey, guid);
  set(FxHome::device_properties, id, kEndpointGuidKey, guid);
}

}  // namespace sonivo::sim
