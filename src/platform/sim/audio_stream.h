#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/audio_client.h"
#include "platform/sim/endpoint_model.h"
#include "platform/sim/packet_clock.h"

namespace sonivo::sim {

/// Engine side of one client: a packet each time the packet clock says so. The scheduler's mutex is held around every
/// call.
class AudioStream {
 public:
  AudioStream(EndpointModel& endpoint, const InitializeRecord& settings);
  virtual ~AudioStream();

  void set_event(Event* event) { event_ = static_cast<SimEvent*>(event); }
  /// Packets are counted anew from this instant.
  Status start();
  /// Keeps what is buffered.
  Status stop();
  /// Drops what is buffered; only while stopped.
  Status reset();
  /// The endpoint is gone: wakes the client to find out.
  void invalidate();

  std::uint32_t buffer_frames() const { return buffer_frames_; }
  /// Frames that wait in the buffer.
  virtual std::uint32_t padding() const = 0;

 protected:
  /// Packet j of the packet clock is due.
  virtual void packet_due(std::uint32_t frames) = 0;
  virtual Time due_time(std::uint64_t j) const = 0;
  virtual void drop_buffered() = 0;

  void wake_client();

  EndpointModel& endpoint_;
  const InitializeRecord settings_;
  const PacketClock packets_;
  const std::size_t frame_bytes_;
  std::uint32_t buffer_frames_;

 private:
  void schedule();

  SimEvent* event_ = nullptr;
  bool running_ = false;
  Time started_ = 0;
  std::uint64_t next_packet_ = 0;
  TimerId timer_ = 0;
};

/// What the endpoint hears, packed. At most 200 ms wait; then the oldest packets are lost.
class CaptureStream final : public AudioStream {
 public:
  CaptureStream(EndpointModel& endpoint, const InitializeRecord& settings);

  /// As AudioCaptureClient.
  Status get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags);
  Status release_buffer(std::uint32_t frames);
  std::uint32_t padding() const override { return waiting_frames_; }

 private:
  struct Packet {
    std::vector<std::byte> data;
    std::uint32_t frames = 0;
    std::uint32_t flags = 0;
  };
  void packet_due(std::uint32_t frames) override;
  Time due_time(std::uint64_t j) const override { return packets_.arrival(j); }
  void drop_buffered() override;
  Packet& append(std::uint32_t frames);
  void lose_oldest();
  std::size_t slot(std::size_t place) const { return (first_ + place) % ring_.size(); }

  std::vector<Packet> ring_;
  std::size_t first_ = 0;  ///< the oldest
  std::size_t count_ = 0;
  std::uint32_t waiting_frames_ = 0;
  Packet held_;  ///< with the client
  bool holding_ = false;
};

/// What the client gives the endpoint to play. An empty buffer plays silence and counts as a glitch.
class RenderStream final : public AudioStream {
 public:
  RenderStream(EndpointModel& endpoint, const InitializeRecord& settings);

  /// As AudioRenderClient.
  Status get_buffer(std::uint32_t frames, std::byte*& data);
  Status release_buffer(std::uint32_t frames, std::uint32_t flags);
  std::uint32_t padding() const override { return static_cast<std::uint32_t>(queued_.size() / frame_bytes_); }

 private:
  void packet_due(std::uint32_t frames) override;
  Time due_time(std::uint64_t j) const override { return packets_.played(j); }
  void drop_buffered() override { queued_.clear(); }
  void play(std::span<const std::byte> frames);

  std::vector<std::byte> queued_;
  std::vector<std::byte> lent_;  ///< with the client
  std::uint32_t lent_frames_ = 0;
  std::vector<std::byte> silence_;
};

}  // namespace sonivo::sim
