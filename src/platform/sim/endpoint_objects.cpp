#include "platform/sim/endpoint_objects.h"

#include <optional>
#include <utility>

#include "platform/client_status.h"
#include "platform/sim/audio_client.h"

namespace sonivo::sim {
namespace {

using ModelPtr = std::shared_ptr<EndpointModel>;

std::optional<Status> scripted_failure(EndpointModel& model, Step step) {
  const auto failure = model.script.enter(step);
  return failure ? std::optional(static_cast<Status>(*failure)) : std::nullopt;
}

Status usable(EndpointModel& model) {
  std::scoped_lock lock(model.scheduler.mutex());
  return model.usable() ? kOk : kDeviceInvalidated;
}

class EndpointProperties final : public PropertyStore {
 public:
  explicit EndpointProperties(ModelPtr model) : model_(std::move(model)), mark_(model_->live.stores) {}

  Status value(const PropertyKey& key, PropertyValue& value) override {
    if (const auto failure = scripted_failure(*model_, Step::endpoint_property_value)) return *failure;
    std::scoped_lock lock(model_->scheduler.mutex());
    if (!model_->present) return kDeviceInvalidated;
    value = key == PKEY_Device_FriendlyName ? PropertyValue(model_->settings.name) : PropertyValue();
    return kOk;
  }

 private:
  ModelPtr model_;
  LiveMark mark_;
};

class SimVolume final : public EndpointVolume {
 public:
  explicit SimVolume(ModelPtr model) : model_(std::move(model)), mark_(model_->live.volumes) {}

  Status mute(bool& muted) override {
    return perform(Step::volume_mute, [&](VolumeModel& volume) { muted = volume.muted(); });
  }
  Status set_mute(bool muted, const Guid* context) override {
    return perform(Step::volume_set_mute, [&](VolumeModel& volume) { volume.set_mute(muted, context); });
  }
  Status level_scalar(float& level) override {
    return perform(Step::volume_level, [&](VolumeModel& volume) { level = volume.level(); });
  }
  Status set_level_scalar(float level, const Guid* context) override {
    const bool in_range = level >= 0 && level <= 1;
    if (!in_range) return kInvalidArgument;
    return perform(Step::volume_set_level, [&](VolumeModel& volume) { volume.set_level(level, context); });
  }
  Status register_callback(IAudioEndpointVolumeCallback* callback) override {
    if (const auto failure = scripted_failure(*model_, Step::volume_register)) return *failure;
    return model_->volume().callbacks().add(callback);
  }
  Status unregister_callback(IAudioEndpointVolumeCallback* callback) override {
    if (const auto failure = scripted_failure(*model_, Step::volume_unregister)) return *failure;
    return model_->volume().callbacks().remove(callback);
  }

 private:
  template <class Operation>
  Status perform(Step step, Operation operation) {
    if (const auto failure = scripted_failure(*model_, step)) return *failure;
    const Status status = usable(*model_);
    if (!failed(status)) operation(model_->volume());
    return status;
  }

  ModelPtr model_;
  LiveMark mark_;
};

class SimEndpoint final : public Endpoint {
 public:
  explicit SimEndpoint(ModelPtr model) : model_(std::move(model)) {}

  Status id(std::string& id) override {
    if (const auto failure = scripted_failure(*model_, Step::endpoint_id)) return *failure;
    id = model_->settings.id;
    return kOk;
  }

  Status open_properties(std::unique_ptr<PropertyStore>& store) override {
    if (const auto failure = scripted_failure(*model_, Step::endpoint_open_properties)) return *failure;
    store = std::make_unique<EndpointProperties>(model_);
    return kOk;
  }

  Status activate_audio_client(std::unique_ptr<AudioClient>& client) override {
    if (const auto failure = scripted_failure(*model_, Step::endpoint_activate_client)) return *failure;
    const Status status = usable(*model_);
    if (!failed(status)) client = make_audio_client(model_);
    return status;
  }

  Status activate_volume(std::shared_ptr<EndpointVolume>& volume) override {
    if (const auto failure = scripted_failure(*model_, Step::endpoint_activate_volume)) return *failure;
    const Status status = usable(*model_);
    if (!failed(status)) volume = std::make_shared<SimVolume>(model_);
    return status;
  }

  const EndpointModel& model() const { return *model_; }

 private:
  ModelPtr model_;
};

}  // namespace

std::shared_ptr<Endpoint> make_endpoint(std::shared_ptr<EndpointModel> model) {
  return std::make_shared<SimEndpoint>(std::move(model));
}

const std::string& id_of(const Endpoint& endpoint) {
  return dynamic_cast<const SimEndpoint&>(endpoint).model().settings.id;
}

}  // namespace sonivo::sim
