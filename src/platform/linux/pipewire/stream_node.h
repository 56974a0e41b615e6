#pragma once

#include <pipewire/stream.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/status.h"
#include "platform/endpoints.h"
#include "platform/linux/pipewire/connection.h"
#include "platform/linux/pipewire/node_volume.h"
#include "platform/linux/pipewire/turn_count.h"
#include "platform/wave_format.h"

namespace sonivo::pipewire {

/// What a node is made of, beside its handler.
struct StreamSettings {
  pw_direction direction = PW_DIRECTION_INPUT;
  WAVEFORMATEXTENSIBLE format;
  std::vector<std::pair<const char*, std::string>> properties;
};

/// Where a node's audio goes to or comes from.
class StreamHandler {
 public:
  /// Data thread: frames that came in. Only copies.
  virtual void take(const std::byte* frames, std::uint32_t count) = 0;
  /// Data thread: frames to go out. Only copies.
  virtual void fill(std::byte* frames, std::uint32_t count) = 0;
  /// Data thread, before either: the graph has turned by so many frames without this node.
  virtual void missed(std::int64_t frames) = 0;
  /// Loop's thread, with the loop locked.
  virtual void state_changed(pw_stream_state state) = 0;

 protected:
  ~StreamHandler() = default;
};

/// Whether frames of this format can pass through a node: packed integers of 8, 16, 24 or 32 bits.
bool can_stream(const WAVEFORMATEXTENSIBLE& format);

/// Properties that the nodes of one direction share: scheduled together, by one driver, and never linked to each other.
/// Each has the same wish for turns of 10 ms, which are never forced, so that they stay as they are while the physical
/// one's node is made anew: an application's stream may fall silent for good where turns become longer for a moment.
void join_group(StreamSettings& settings, DataFlow flow);

/// One node of ours in the graph, which converts to and from the format by itself.
class StreamNode {
 public:
  StreamNode(StreamSettings settings, StreamHandler& handler);
  /// With the loop locked, if it is open.
  ~StreamNode() { close(); }
  StreamNode(const StreamNode&) = delete;
  StreamNode& operator=(const StreamNode&) = delete;

  /// With the loop locked. False: the server doesn't take it.
  bool open(pw_core& core);
  /// With the loop locked. Afterwards the handler isn't called.
  void close();
  /// With the loop locked.
  void set_volume(const NodeVolume& volume);

 private:
  void process();
  void count_turn(std::uint32_t frames);

  const StreamSettings settings_;
  const std::size_t frame_bytes_;
  StreamHandler& handler_;
  TurnCount turns_;
  pw_stream* stream_ = nullptr;
  spa_hook hook_{};
};

}  // namespace sonivo::pipewire
