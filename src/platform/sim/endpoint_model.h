#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/endpoints.h"
#include "platform/sim/live_mark.h"
#include "platform/sim/scheduler.h"
#include "platform/sim/signal.h"
#include "platform/sim/volume.h"

namespace sonivo::sim {

class AudioStream;

struct EndpointSettings {
  std::string id = {};
  std::string name = {};  ///< friendly name
  DataFlow flow = DataFlow::capture;
  std::uint32_t state = kDeviceActive;
  std::uint32_t rate_hz = 48000;
  std::uint32_t period = 0;  ///< engine period in frames of a stream; 0: 10 ms
  float level = 0.5f;
};

/// What a client asked for in AudioClient::initialize.
struct InitializeRecord {
  std::uint32_t flags = 0;
  std::int64_t buffer_100ns = 0;
  std::int64_t period_100ns = 0;
  WAVEFORMATEXTENSIBLE format = {};
};

struct CaptureStats {
  std::uint64_t packets = 0;          ///< made, with the empty ones
  std::uint64_t consumed_frames = 0;  ///< taken from the source
  std::uint64_t lost_frames = 0;      ///< overwritten, as over 200 ms waited
  std::uint64_t glitches = 0;         ///< packets overwritten
  std::uint64_t dropped_frames = 0;   ///< by reset
};

struct RenderStats {
  std::uint64_t played_frames = 0;  ///< with the silence
  std::uint64_t glitch_frames = 0;  ///< silence played as nothing was there
};

/// Objects of the program alive at this time.
struct LiveObjects {
  std::atomic<int> clients = 0;
  std::atomic<int> services = 0;
  std::atomic<int> volumes = 0;
  std::atomic<int> stores = 0;
};

/// Hardware behind one endpoint. Public operations lock; the members after them are for the models, with the
/// scheduler's mutex held.
class EndpointModel {
 public:
  EndpointModel(Scheduler& scheduler, Script& script, LiveObjects& live, EndpointSettings settings);

  /// What a microphone hears, in the format of the stream; silence without one.
  void set_source(Source source);
  /// Takes what a speaker plays, in place of played().
  void set_sink(Sink sink);
  std::vector<std::byte> played() const;
  /// Engine period of clients initialised from now on.
  void set_period(std::uint32_t frames);
  /// Flags packet n as silent and fills it with 0x55. Packets are counted from 0 over all clients.
  void make_packet_silent(std::uint64_t n);
  /// Makes packet n an empty one; the frames come with the next.
  void make_packet_empty(std::uint64_t n);

  CaptureStats capture_stats() const;
  RenderStats render_stats() const;
  /// Of each client, in order.
  std::vector<InitializeRecord> initialized() const;
  VolumeModel& volume() { return volume_; }
  const VolumeModel& volume() const { return volume_; }

  Scheduler& scheduler;
  Script& script;
  LiveObjects& live;
  EndpointSettings settings;
  bool present = true;
  Source source;
  Sink sink;
  std::vector<std::byte> played_bytes;
  std::set<std::uint64_t> silent_packets;
  std::set<std::uint64_t> empty_packets;
  CaptureStats capture;
  RenderStats render;
  std::vector<InitializeRecord> initialize_log;
  std::vector<AudioStream*> streams;

  bool usable() const { return present && settings.state == kDeviceActive; }
  std::uint32_t period(std::uint32_t rate_hz) const { return settings.period != 0 ? settings.period : rate_hz / 100; }
  /// Wakes the clients once, after the endpoint has become unusable.
  void invalidate_streams();

 private:
  VolumeModel volume_;
};

}  // namespace sonivo::sim
