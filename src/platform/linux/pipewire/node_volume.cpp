#include "platform/linux/pipewire/node_volume.h"

#include <spa/param/props.h>
#include <spa/pod/iter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace sonivo::pipewire {
namespace {

constexpr std::size_t kMaxChannels = 64;

}  // namespace

float NodeVolume::scalar() const {
  return std::cbrt(std::max(*std::max_element(channels.begin(), channels.end()), 0.0f));
}

void NodeVolume::set_scalar(float level) {
  const float factor = level * level * level;
  const float loudest = *std::max_element(channels.begin(), channels.end());
  for (float& each : channels) each = loudest > 0 ? each / loudest * factor : factor;
}

bool read_volume(const spa_pod& props, NodeVolume& volume) {
  bool told = false;
  if (const spa_pod_prop* found = spa_pod_find_prop(&props, nullptr, SPA_PROP_mute)) {
    told = spa_pod_get_bool(&found->value, &volume.muted) == 0;
  }
  if (const spa_pod_prop* found = spa_pod_find_prop(&props, nullptr, SPA_PROP_channelVolumes)) {
    std::array<float, kMaxChannels> factors{};
    const std::uint32_t count =
        spa_pod_copy_array(&found->value, SPA_TYPE_Float, factors.data(), std::uint32_t{kMaxChannels});
    if (count != 0) {
      volume.channels.assign(factors.begin(), factors.begin() + count);
      told = true;
    }
  }
  return told;
}

const spa_pod* volume_props(spa_pod_builder& builder, const NodeVolume& before, const NodeVolume& wanted) {
  spa_pod_frame frame;
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  if (wanted.muted != before.muted) {
    spa_pod_builder_prop(&builder, SPA_PROP_mute, 0);
    spa_pod_builder_bool(&builder, wanted.muted);
  }
  if (wanted.channels != before.channels) {
    spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
    spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float, static_cast<std::uint32_t>(wanted.channels.size()),
                          wanted.channels.data());
  }
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

}  // namespace sonivo::pipewire
