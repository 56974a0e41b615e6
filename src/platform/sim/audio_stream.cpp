#include "platform/sim/audio_stream.h"

#include <algorithm>
#include <utility>

#include "platform/client_status.h"

namespace sonivo::sim {
namespace {

constexpr std::byte kGarbage{0x55};
constexpr std::size_t kPlayedSeconds = 30;

}  // namespace

AudioStream::AudioStream(EndpointModel& endpoint, const InitializeRecord& settings)
    : endpoint_(endpoint),
      settings_(settings),
      packets_(settings.format.nSamplesPerSec, endpoint.period(settings.format.nSamplesPerSec)),
      frame_bytes_(settings.format.nBlockAlign),
      buffer_frames_(std::max(2 * packets_.max_frames(), settings.format.nSamplesPerSec / 100)) {
  endpoint_.streams.push_back(this);
}

AudioStream::~AudioStream() { std::erase(endpoint_.streams, this); }

Status AudioStream::start() {
  if (running_) return kNotStopped;
  if ((settings_.flags & kStreamEventCallback) != 0 && event_ == nullptr) return kEventNotSet;
  running_ = true;
  started_ = endpoint_.scheduler.now();
  next_packet_ = 0;
  schedule();
  return kOk;
}

Status AudioStream::stop() {
  endpoint_.scheduler.cancel(timer_);
  return std::exchange(running_, false) ? kOk : kWasStopped;
}

Status AudioStream::reset() {
  if (running_) return kNotStopped;
  drop_buffered();
  return kOk;
}

void AudioStream::invalidate() {
  stop();
  wake_client();
}

void AudioStream::wake_client() {
  if (event_ != nullptr) event_->signal();
}

void AudioStream::schedule() {
  timer_ = endpoint_.scheduler.at(started_ + due_time(next_packet_), [this] {
    packet_due(packets_.frames(next_packet_));
    ++next_packet_;
    wake_client();
    schedule();
  });
}

// ---- Recording

CaptureStream::CaptureStream(EndpointModel& endpoint, const InitializeRecord& settings)
    : AudioStream(endpoint, settings) {
  buffer_frames_ = settings.format.nSamplesPerSec / 5;
  const std::uint32_t smallest = packets_.frames(0);
  ring_.resize(buffer_frames_ / smallest + 1);
  for (Packet& packet : ring_) packet.data.resize(packets_.max_frames() * frame_bytes_);
  held_.data.resize(packets_.max_frames() * frame_bytes_);
}

void CaptureStream::packet_due(std::uint32_t frames) {
  while (endpoint_.empty_packets.contains(endpoint_.capture.packets)) append(0);
  const bool silent = endpoint_.silent_packets.contains(endpoint_.capture.packets);
  Packet& packet = append(frames);
  const std::span<std::byte> data(packet.data.data(), frames * frame_bytes_);
  if (endpoint_.source) {
    endpoint_.source(data);
  } else {
    std::fill(data.begin(), data.end(), std::byte{0});
  }
  endpoint_.capture.consumed_frames += frames;
  if (silent) {
    packet.flags = kBufferSilent;
    std::fill(data.begin(), data.end(), kGarbage);
  }
}

CaptureStream::Packet& CaptureStream::append(std::uint32_t frames) {
  while (count_ == ring_.size() || waiting_frames_ + frames > buffer_frames_) lose_oldest();
  Packet& packet = ring_[slot(count_++)];
  packet.frames = frames;
  packet.flags = 0;
  waiting_frames_ += frames;
  ++endpoint_.capture.packets;
  return packet;
}

void CaptureStream::lose_oldest() {
  const std::uint32_t frames = ring_[first_].frames;
  first_ = slot(1);
  --count_;
  waiting_frames_ -= frames;
  ++endpoint_.capture.glitches;
  endpoint_.capture.lost_frames += frames;
}

void CaptureStream::drop_buffered() {
  endpoint_.capture.dropped_frames += waiting_frames_;
  count_ = 0;
  waiting_frames_ = 0;
}

Status CaptureStream::get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags) {
  if (holding_) return kOutOfOrder;
  if (count_ == 0) {
    frames = 0;
    flags = 0;
    return kBufferEmpty;
  }
  std::swap(held_, ring_[first_]);
  first_ = slot(1);
  --count_;
  waiting_frames_ -= held_.frames;
  holding_ = true;
  data = held_.data.data();
  frames = held_.frames;
  flags = held_.flags;
  return kOk;
}

Status CaptureStream::release_buffer(std::uint32_t frames) {
  if (!holding_) return frames == 0 ? kOk : kOutOfOrder;
  if (frames != held_.frames) return kInvalidSize;
  holding_ = false;
  if (count_ != 0) wake_client();
  return kOk;
}

// ---- Playing

RenderStream::RenderStream(EndpointModel& endpoint, const InitializeRecord& settings)
    : AudioStream(endpoint, settings), silence_(packets_.max_frames() * frame_bytes_) {
  queued_.reserve(buffer_frames_ * frame_bytes_);
  lent_.resize(buffer_frames_ * frame_bytes_);
  if (!endpoint_.sink) endpoint_.played_bytes.reserve(kPlayedSeconds * settings.format.nAvgBytesPerSec);
}

Status RenderStream::get_buffer(std::uint32_t frames, std::byte*& data) {
  if (lent_frames_ != 0) return kOutOfOrder;
  if (frames > buffer_frames_ - padding()) return kBufferTooLarge;
  lent_frames_ = frames;
  std::fill_n(lent_.begin(), frames * frame_bytes_, std::byte{0x55});  // so that what isn't filled is heard
  data = lent_.data();
  return kOk;
}

Status RenderStream::release_buffer(std::uint32_t frames, std::uint32_t flags) {
  if (frames > lent_frames_) return lent_frames_ == 0 ? kOutOfOrder : kInvalidSize;
  lent_frames_ = 0;
  const auto bytes = static_cast<std::ptrdiff_t>(frames * frame_bytes_);
  if ((flags & kBufferSilent) != 0) {
    queued_.insert(queued_.end(), static_cast<std::size_t>(bytes), std::byte{0});
  } else {
    queued_.insert(queued_.end(), lent_.begin(), lent_.begin() + bytes);
  }
  return kOk;
}

void RenderStream::packet_due(std::uint32_t frames) {
  const std::size_t wanted = frames * frame_bytes_;
  const std::size_t there = std::min(wanted, queued_.size());
  play({queued_.data(), there});
  queued_.erase(queued_.begin(), queued_.begin() + static_cast<std::ptrdiff_t>(there));
  play({silence_.data(), wanted - there});
  endpoint_.render.played_frames += frames;
  endpoint_.render.glitch_frames += (wanted - there) / frame_bytes_;
}

void RenderStream::play(std::span<const std::byte> frames) {
  if (frames.empty()) return;
  if (endpoint_.sink) {
    endpoint_.sink(frames);
  } else {
    endpoint_.played_bytes.insert(endpoint_.played_bytes.end(), frames.begin(), frames.end());
  }
}

}  // namespace sonivo::sim
