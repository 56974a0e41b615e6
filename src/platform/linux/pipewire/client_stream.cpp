#include "platform/linux/pipewire/client_stream.h"

#include <pipewire/keys.h>

#include <algorithm>

#include "platform/client_status.h"

namespace sonivo::pipewire {
namespace {

constexpr std::uint32_t kPiecesPerSecond = 100;
// 20 ms of recording wait for the client, as much as it keeps with the virtual microphone: when it comes late, time
// that the one loses the other loses too, and afterwards the way from the one to the other is as long as before.
constexpr std::uint32_t kWaitingPerSecond = 50;
constexpr std::uint32_t kReactionPerSecond = 200;  // a client has 5 ms to bring what is played
constexpr std::uint32_t kLongestTurn = 16384;      // twice the longest turn of the server, in frames of either rate

StreamSettings stream_settings(const EndpointFacts& endpoint, const WAVEFORMATEXTENSIBLE& format) {
  const bool capture = endpoint.flow == DataFlow::capture;
  StreamSettings settings{
      .direction = capture ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, .format = format, .properties = {}};
  settings.properties = {
      {PW_KEY_MEDIA_CATEGORY, capture ? "Capture" : "Playback"},
      {PW_KEY_MEDIA_ROLE, "Communication"},
      {PW_KEY_NODE_NAME, capture ? "sonivo.microphone" : "sonivo.speaker"},
      {PW_KEY_NODE_DESCRIPTION, capture ? "Sonivo microphone" : "Sonivo speaker"},
      {PW_KEY_TARGET_OBJECT, endpoint.id},
      {PW_KEY_NODE_DONT_RECONNECT, "true"},
      // The endpoint runs only while somebody uses the virtual one.
      {PW_KEY_NODE_PASSIVE, "true"},
      {"state.restore-props", "false"},
      {"state.restore-target", "false"},
  };
  // Two microphones are taken as they are; one alone is heard in every channel.
  if (capture && !endpoint.has_one_channel) settings.properties.emplace_back(PW_KEY_STREAM_DONT_REMIX, "true");
  join_group(settings, endpoint.flow);
  return settings;
}

}  // namespace

ClientStream::ClientStream(Connection& connection, Graph& graph, Pacer& pacer, const EndpointFacts& endpoint,
                           const WAVEFORMATEXTENSIBLE& format)
    : Pacer::Stream(pacer, format.nSamplesPerSec,
                    endpoint.flow == DataFlow::capture ? Pacer::Order::gives : Pacer::Order::takes),
      format_(format),
      connection_(connection),
      graph_(graph),
      pacer_(pacer),
      way_(pacer.way(endpoint.flow)),
      flow_(endpoint.flow),
      endpoint_(endpoint.id),
      max_piece_(format.nSamplesPerSec / kPiecesPerSecond),
      node_(stream_settings(endpoint, format), *this) {}

Status ClientStream::open() {
  pacer_.add(*this);
  const Connection::Lock lock(connection_);
  open_ = true;
  connection_.add(*this);
  graph_.add(*this);
  pw_core* const core = connection_.core();
  const auto facts = graph_.find(endpoint_);
  if (core == nullptr || !facts || !facts->present || !node_.open(*core)) valid_ = false;
  return valid_ ? kOk : kDeviceInvalidated;
}

void ClientStream::close() {
  if (!open_) return;
  {
    const Connection::Lock lock(connection_);
    node_.close();
    graph_.remove(*this);
    connection_.remove(*this);
  }
  pacer_.remove(*this);
  open_ = false;
}

Status ClientStream::start(bool needs_event) {
  if (running_) return kNotStopped;
  if (needs_event && event_ == nullptr) return kEventNotSet;
  way_.begin(format_.nSamplesPerSec);
  running_ = true;
  return kOk;
}

Status ClientStream::stop() {
  if (!running_.exchange(false)) return kWasStopped;
  way_.end();
  return kOk;
}

Status ClientStream::reset() {
  if (running_) return kNotStopped;
  drop_buffered();
  return kOk;
}

void ClientStream::wake_client() {
  if (Event* const event = event_) event->set();
}

void ClientStream::disconnected() {
  node_.close();
  invalidate();
}

void ClientStream::departed(const std::string& id) {
  if (id == endpoint_) invalidate();
}

void ClientStream::state_changed(pw_stream_state state) {
  if (state == PW_STREAM_STATE_ERROR) invalidate();
}

/// What the microphone said then is not on its way; what the speaker was to play then still is.
void ClientStream::missed(std::int64_t frames) { lengthen_way(flow_ == DataFlow::capture ? -frames : frames); }

void ClientStream::invalidate() {
  valid_ = false;
  wake_client();
}

// ---- Recording

CaptureStream::CaptureStream(Connection& connection, Graph& graph, Pacer& pacer, const EndpointFacts& endpoint,
                             const WAVEFORMATEXTENSIBLE& format)
    : ClientStream(connection, graph, pacer, endpoint, format),
      buffer_frames_(format.nSamplesPerSec / kWaitingPerSecond),
      fifo_(format.nBlockAlign, buffer_frames_ + kLongestTurn),
      held_(std::size_t{max_piece()} * format.nBlockAlign) {}

void CaptureStream::take(const std::byte* frames, std::uint32_t count) {
  if (!is_running()) return;
  const auto written = static_cast<std::uint32_t>(fifo_.write(frames, count));
  lose(count - written);
  note_turn(written);
}

void CaptureStream::release(std::uint32_t frames) {
  released_ += frames;
  wake_client();
}

void CaptureStream::skip(std::uint32_t frames) {
  released_ += frames;
  skipped_ += frames;
}

std::uint32_t CaptureStream::padding() const { return static_cast<std::uint32_t>(released_ - fifo_.taken()); }

void CaptureStream::drop_buffered() {
  skipped_ = 0;
  fifo_.drop(padding());
}

Status CaptureStream::get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags) {
  if (held_frames_ != 0) return kOutOfOrder;
  flags = 0;
  lose(fifo_.drop(std::min(skipped_.exchange(0), padding())));
  std::uint32_t waiting = padding();
  if (waiting > buffer_frames_) {
    lose(fifo_.drop(waiting - buffer_frames_));
    waiting = buffer_frames_;
  }
  frames = std::min(waiting, max_piece());
  if (frames == 0) return kBufferEmpty;
  fifo_.read(held_.data(), frames);
  held_frames_ = frames;
  data = held_.data();
  return kOk;
}

Status CaptureStream::release_buffer(std::uint32_t frames) {
  if (held_frames_ == 0) return frames == 0 ? kOk : kOutOfOrder;
  if (frames != held_frames_) return kInvalidSize;
  held_frames_ = 0;
  if (padding() != 0) wake_client();
  return kOk;
}

// ---- Playing

RenderStream::RenderStream(Connection& connection, Graph& graph, Pacer& pacer, const EndpointFacts& endpoint,
                           const WAVEFORMATEXTENSIBLE& format)
    : ClientStream(connection, graph, pacer, endpoint, format),
      buffer_frames_(2 * max_piece()),
      playout_(format.nBlockAlign, buffer_frames_ + kLongestTurn, format.nSamplesPerSec,
               format.nSamplesPerSec / kReactionPerSecond),
      lent_(std::size_t{buffer_frames_} * format.nBlockAlign) {}

void RenderStream::fill(std::byte* frames, std::uint32_t count) {
  if (!is_running()) {
    std::fill_n(frames, std::size_t{count} * format_.nBlockAlign, std::byte{0});
    return;
  }
  lengthen_way(static_cast<std::int64_t>(playout_.read(frames, count)));
  note_turn(count);
}

void RenderStream::release(std::uint32_t frames) {
  position_.pass(playout_.admitted(frames));
  wake_client();
}

std::uint32_t RenderStream::padding() const { return position_.waiting(); }

void RenderStream::drop_buffered() {
  playout_.flush();
  position_.drop();
}

Status RenderStream::get_buffer(std::uint32_t frames, std::byte*& data) {
  if (lent_frames_ != 0) return kOutOfOrder;
  if (frames > buffer_frames_ - padding()) return kBufferTooLarge;
  lent_frames_ = frames;
  data = lent_.data();
  return kOk;
}

Status RenderStream::release_buffer(std::uint32_t frames, std::uint32_t flags) {
  if (frames > lent_frames_) return lent_frames_ == 0 ? kOutOfOrder : kInvalidSize;
  lent_frames_ = 0;
  const std::size_t bytes = std::size_t{frames} * format_.nBlockAlign;
  if ((flags & kBufferSilent) != 0) std::fill_n(lent_.begin(), bytes, std::byte{0});
  playout_.write(lent_.data(), frames);
  position_.write(frames);
  return kOk;
}

}  // namespace sonivo::pipewire
