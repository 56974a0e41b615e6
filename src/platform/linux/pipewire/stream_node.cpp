#include "platform/linux/pipewire/stream_node.h"

#include <pipewire/keys.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/props.h>

#include <algorithm>
#include <array>
#include <string>

namespace sonivo::pipewire {
namespace {

constexpr std::uint32_t kTurnsPerSecond = 100;

spa_audio_format sample_format(std::uint16_t bits) {
  switch (bits) {
    case 8:
      return SPA_AUDIO_FORMAT_U8;
    case 16:
      return SPA_AUDIO_FORMAT_S16_LE;
    case 24:
      return SPA_AUDIO_FORMAT_S24_LE;
    case 32:
      return SPA_AUDIO_FORMAT_S32_LE;
    default:
      return SPA_AUDIO_FORMAT_UNKNOWN;
  }
}

spa_audio_info_raw audio_info(const WAVEFORMATEXTENSIBLE& format) {
  spa_audio_info_raw info{};
  info.format = sample_format(format.wBitsPerSample);
  info.rate = format.nSamplesPerSec;
  info.channels = format.nChannels;
  if (format.nChannels == 1) {
    info.position[0] = SPA_AUDIO_CHANNEL_MONO;
  } else if (format.nChannels == 2) {
    info.position[0] = SPA_AUDIO_CHANNEL_FL;
    info.position[1] = SPA_AUDIO_CHANNEL_FR;
  } else {
    for (std::uint32_t i = 0; i < info.channels; ++i) info.position[i] = SPA_AUDIO_CHANNEL_START_Aux + i;
  }
  return info;
}

pw_properties* properties_of(const StreamSettings& settings) {
  pw_properties* const properties = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", nullptr);
  for (const auto& [key, value] : settings.properties) pw_properties_set(properties, key, value.c_str());
  return properties;
}

}  // namespace

bool can_stream(const WAVEFORMATEXTENSIBLE& format) {
  return IsConsistent(format) && format.nChannels <= SPA_AUDIO_MAX_CHANNELS &&
         sample_format(format.wBitsPerSample) != SPA_AUDIO_FORMAT_UNKNOWN;
}

void join_group(StreamSettings& settings, DataFlow flow) {
  const char* const group = flow == DataFlow::capture ? "sonivo.capture" : "sonivo.render";
  settings.properties.emplace_back(PW_KEY_NODE_GROUP, group);
  settings.properties.emplace_back(PW_KEY_NODE_LINK_GROUP, group);
  settings.properties.emplace_back(PW_KEY_NODE_VIRTUAL, "true");
  const std::uint32_t rate_hz = settings.format.nSamplesPerSec;
  settings.properties.emplace_back(PW_KEY_NODE_LATENCY,
                                   std::to_string(rate_hz / kTurnsPerSecond) + "/" + std::to_string(rate_hz));
}

StreamNode::StreamNode(StreamSettings settings, StreamHandler& handler)
    : settings_(std::move(settings)),
      frame_bytes_(settings_.format.nBlockAlign),
      handler_(handler),
      turns_(settings_.format.nSamplesPerSec) {}

bool StreamNode::open(pw_core& core) {
  stream_ = pw_stream_new(&core, "sonivo", properties_of(settings_));
  if (stream_ == nullptr) return false;
  turns_.restart();
  static const pw_stream_events events = [] {
    pw_stream_events table{};
    table.version = PW_VERSION_STREAM_EVENTS;
    table.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char*) {
      static_cast<StreamNode*>(self)->handler_.state_changed(state);
    };
    table.process = [](void* self) { static_cast<StreamNode*>(self)->process(); };
    return table;
  }();
  pw_stream_add_listener(stream_, &hook_, &events, this);

  std::array<std::uint8_t, 1024> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), std::uint32_t{memory.size()});
  spa_audio_info_raw info = audio_info(settings_.format);
  const spa_pod* format = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
  const auto flags =
      static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  if (pw_stream_connect(stream_, settings_.direction, PW_ID_ANY, flags, &format, 1) == 0) return true;
  close();
  return false;
}

void StreamNode::close() {
  if (stream_ == nullptr) return;
  spa_hook_remove(&hook_);
  pw_stream_destroy(stream_);
  stream_ = nullptr;
}

void StreamNode::set_volume(const NodeVolume& volume) {
  if (stream_ == nullptr) return;
  float mute = volume.muted ? 1 : 0;
  std::vector<float> channels = volume.channels;
  pw_stream_set_control(stream_, SPA_PROP_mute, 1, &mute, SPA_PROP_channelVolumes,
                        static_cast<std::uint32_t>(channels.size()), channels.data(), 0);
}

void StreamNode::count_turn(std::uint32_t frames) {
  pw_time time{};
  if (pw_stream_get_time_n(stream_, &time, sizeof time) != 0 || time.rate.num != 1 || time.rate.denom == 0) return;
  const std::int64_t missed = turns_.turn(time.ticks, time.rate.denom, frames);
  if (missed != 0) handler_.missed(missed);
}

void StreamNode::process() {
  pw_buffer* const buffer = pw_stream_dequeue_buffer(stream_);
  if (buffer == nullptr) return;
  spa_data& data = buffer->buffer->datas[0];
  auto* const memory = static_cast<std::byte*>(data.data);
  if (memory != nullptr && settings_.direction == PW_DIRECTION_INPUT) {
    const std::uint32_t offset = std::min(data.chunk->offset, data.maxsize);
    const std::uint32_t bytes = std::min(data.chunk->size, data.maxsize - offset);
    const std::uint32_t frames = bytes / static_cast<std::uint32_t>(frame_bytes_);
    count_turn(frames);
    handler_.take(memory + offset, frames);
  } else if (memory != nullptr) {
    auto frames = data.maxsize / static_cast<std::uint32_t>(frame_bytes_);
    if (buffer->requested != 0) frames = static_cast<std::uint32_t>(std::min<std::uint64_t>(frames, buffer->requested));
    count_turn(frames);
    handler_.fill(memory, frames);
    data.chunk->offset = 0;
    data.chunk->stride = static_cast<std::int32_t>(frame_bytes_);
    data.chunk->size = frames * static_cast<std::uint32_t>(frame_bytes_);
  }
  pw_stream_queue_buffer(stream_, buffer);
}

}  // namespace sonivo::pipewire
