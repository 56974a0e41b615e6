#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/event.h"
#include "base/status.h"
#include "platform/wave_format.h"

namespace sonivo {

/// Flags of AudioClient::initialize.
inline constexpr std::uint32_t kStreamEventCallback = 0x00040000;
inline constexpr std::uint32_t kStreamSrcDefaultQuality = 0x08000000;
inline constexpr std::uint32_t kStreamAutoConvertPcm = 0x80000000;

/// Flag of a packet: treat its frames as silence, whatever its memory holds.
inline constexpr std::uint32_t kBufferSilent = 2;

/// Packets of a recording client. Between get and release the memory belongs to the caller.
class AudioCaptureClient {
 public:
  virtual ~AudioCaptureClient() = default;
  virtual Status get_buffer(const std::byte*& data, std::uint32_t& frames, std::uint32_t& flags) = 0;
  virtual Status release_buffer(std::uint32_t frames) = 0;
};

/// Packets of a playing client.
class AudioRenderClient {
 public:
  virtual ~AudioRenderClient() = default;
  virtual Status get_buffer(std::uint32_t frames, std::byte*& data) = 0;
  virtual Status release_buffer(std::uint32_t frames, std::uint32_t flags) = 0;
};

/// A shared-mode client of one endpoint.
class AudioClient {
 public:
  virtual ~AudioClient() = default;
  /// Buffer and period in units of 100 ns.
  virtual Status initialize(std::uint32_t flags, std::int64_t buffer_100ns, std::int64_t period_100ns,
                            const WAVEFORMATEXTENSIBLE& format) = 0;
  /// Event to be set whenever the endpoint has a packet (recording) or room for one (playing).
  virtual Status set_event(Event* event) = 0;
  virtual Status capture_service(std::unique_ptr<AudioCaptureClient>& service) = 0;
  virtual Status render_service(std::unique_ptr<AudioRenderClient>& service) = 0;
  virtual Status buffer_size(std::uint32_t& frames) = 0;
  /// Frames in the buffer that the endpoint has still to play.
  virtual Status current_padding(std::uint32_t& frames) = 0;
  virtual Status start() = 0;
  virtual Status stop() = 0;
  /// Drops what the endpoint holds; only while stopped.
  virtual Status reset() = 0;
  /// Period of the endpoint's engine, in frames.
  virtual Status current_engine_period(std::uint32_t& frames) = 0;
  virtual Status mix_format(WAVEFORMATEXTENSIBLE& format) = 0;
};

}  // namespace sonivo
