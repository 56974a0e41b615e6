#pragma once

#include <spa/pod/builder.h>
#include <spa/pod/pod.h>

#include <optional>
#include <vector>

namespace sonivo::pipewire {

/// Mute and level of a node, as its Props have them.
///
/// The scalar is the cube root of the loudest channel's factor: what the desktop's own sliders show, with even steps to
/// the ear; above 1 where the user amplifies. A set level keeps the balance of the channels.
struct NodeVolume {
  bool muted = false;
  std::vector<float> channels{1.0f};  ///< factors of amplitude; never empty

  float scalar() const;
  void set_scalar(float level);

  friend bool operator==(const NodeVolume&, const NodeVolume&) = default;
};

/// What of `volume` the Props tell anew; false when that is nothing.
bool read_volume(const spa_pod& props, NodeVolume& volume);

/// Props that set what differs from `before`.
const spa_pod* volume_props(spa_pod_builder& builder, const NodeVolume& before, const NodeVolume& wanted);

}  // namespace sonivo::pipewire
