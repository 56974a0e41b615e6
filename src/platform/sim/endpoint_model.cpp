#include "platform/sim/endpoint_model.h"

#include <utility>

#include "platform/sim/audio_stream.h"

namespace sonivo::sim {

EndpointModel::EndpointModel(Scheduler& its_scheduler, Script& its_script, LiveObjects& live_objects,
                             EndpointSettings its_settings)
    : scheduler(its_scheduler),
      script(its_script),
      live(live_objects),
      settings(std::move(its_settings)),
      volume_(its_scheduler, settings.level) {}

void EndpointModel::set_source(Source new_source) {
  std::scoped_lock lock(scheduler.mutex());
  source = std::move(new_source);
}

void EndpointModel::set_sink(Sink new_sink) {
  std::scoped_lock lock(scheduler.mutex());
  sink = std::move(new_sink);
}

std::vector<std::byte> EndpointModel::played() const {
  std::scoped_lock lock(scheduler.mutex());
  return played_bytes;
}

void EndpointModel::set_period(std::uint32_t frames) {
  std::scoped_lock lock(scheduler.mutex());
  settings.period = frames;
}

void EndpointModel::make_packet_silent(std::uint64_t n) {
  std::scoped_lock lock(scheduler.mutex());
  silent_packets.insert(n);
}

void EndpointModel::make_packet_empty(std::uint64_t n) {
  std::scoped_lock lock(scheduler.mutex());
  empty_packets.insert(n);
}

CaptureStats EndpointModel::capture_stats() const {
  std::scoped_lock lock(scheduler.mutex());
  return capture;
}

RenderStats EndpointModel::render_stats() const {
  std::scoped_lock lock(scheduler.mutex());
  return render;
}

std::vector<InitializeRecord> EndpointModel::initialized() const {
  std::scoped_lock lock(scheduler.mutex());
  return initialize_log;
}

void EndpointModel::invalidate_streams() {
  for (AudioStream* stream : streams) stream->invalidate();
}

}  // namespace sonivo::sim
