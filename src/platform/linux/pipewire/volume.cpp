#include "platform/linux/pipewire/volume.h"

#include <utility>

#include "platform/client_status.h"

namespace sonivo::pipewire {
namespace {

constexpr float kLoudest = 2.2f;  // the server amplifies tenfold at most

class GraphVolume final : public EndpointVolume {
 public:
  GraphVolume(Graph& graph, std::string id) : graph_(graph), id_(std::move(id)), callbacks_(graph_.hold(id_)) {}

  Status mute(bool& muted) override {
    const auto volume = graph_.volume(id_);
    if (!volume) return kDeviceInvalidated;
    muted = volume->muted;
    return kOk;
  }
  Status set_mute(bool muted, const Guid* context) override {
    return change(context, [&](NodeVolume& volume) { volume.muted = muted; });
  }
  Status level_scalar(float& level) override {
    const auto volume = graph_.volume(id_);
    if (!volume) return kDeviceInvalidated;
    level = volume->scalar();
    return kOk;
  }
  Status set_level_scalar(float level, const Guid* context) override {
    const bool in_range = level >= 0 && level <= kLoudest;
    if (!in_range) return kInvalidArgument;
    return change(context, [&](NodeVolume& volume) { volume.set_scalar(level); });
  }
  Status register_callback(IAudioEndpointVolumeCallback* callback) override {
    return callbacks_ ? callbacks_->add(callback) : kDeviceInvalidated;
  }
  Status unregister_callback(IAudioEndpointVolumeCallback* callback) override {
    return callbacks_ ? callbacks_->remove(callback) : kDeviceInvalidated;
  }

 private:
  Status change(const Guid* context, const std::function<void(NodeVolume&)>& change) {
    return graph_.set_volume(id_, context != nullptr ? *context : Guid{}, change) ? kOk : kDeviceInvalidated;
  }

  Graph& graph_;
  const std::string id_;
  const std::shared_ptr<Graph::VolumeCallbacks> callbacks_;
};

}  // namespace

std::shared_ptr<EndpointVolume> make_volume(Graph& graph, std::string id) {
  return std::make_shared<GraphVolume>(graph, std::move(id));
}

}  // namespace sonivo::pipewire
