#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/device.h"
#include "platform/sim/scheduler.h"
#include "platform/sim/signal.h"
#include "platform/sim/stream_clock.h"
#include "platform/wave_format.h"

namespace sonivo::sim {

enum class PinId { mic, speaker };

/// Clock of the virtual pair.
struct PinConfig {
  std::uint32_t virtual_period = 0;  ///< engine period of the virtual endpoint, frames; 0: 10 ms
  double drift_ppm = 0;              ///< against the physical endpoints
  double trim_ppm = 1000;            ///< by how much feedback 1 speeds the stream up and -1 slows it down
};

struct PinStats {
  std::uint64_t frames = 0;          ///< that passed since the application opened the pin
  std::uint64_t transfers = 0;       ///< completed well
  std::uint64_t starved_frames = 0;  ///< mic: silence heard, speaker: frames dropped, as no transfer was outstanding
  std::int32_t feedback = 0;         ///< latest value
};

struct FeedbackRecord {
  Time time = 0;
  std::int32_t value = 0;
};

/// A request that the driver holds.
struct PendingRequest {
  const Device* handle = nullptr;
  Overlapped* overlapped = nullptr;
  std::span<const std::byte> input;
  std::span<std::byte> output;
};

/// One end of the virtual pair: the application's stream, its clock, and the requests of the program. The scheduler's
/// mutex is held around every call.
///
/// While an application has the pin open, a period ends whenever the clock has passed as many frames as the front
/// transfer carries, or one engine period when none is outstanding. Then the front transfer, and only that, completes.
class PinModel {
 public:
  PinModel(Scheduler& scheduler, PinId id, const PinConfig& config);

  void open_client(const WAVEFORMATEXTENSIBLE& format, Sink sink, Source source);
  void close_client();
  void set_present(bool present);
  bool present() const { return present_; }

  /// The three requests, in the contract of Device::control.
  Error wait_stream(const PendingRequest& request);
  Error transfer(const PendingRequest& request);
  Error feedback(const PendingRequest& request);

  /// Ends the requests of a handle with this error.
  void abort(const Device* handle, Error error);
  /// Ends one request with error::kOperationAborted if it is pending.
  void cancel(Overlapped& overlapped);

  PinId id() const { return id_; }
  std::size_t pending_requests() const { return waiting_.size() + transfers_.size(); }
  SimEvent& request_done() { return request_done_; }
  const PinStats& stats() const { return stats_; }
  const std::vector<std::byte>& recording() const { return recording_; }
  const std::vector<FeedbackRecord>& feedback_log() const { return feedback_log_; }

 private:
  void complete(Overlapped& overlapped, Error error, std::uint32_t transferred);
  void hand_out_format(const PendingRequest& request);
  std::size_t transfer_bytes(const PendingRequest& request) const;
  std::size_t period_frames() const;
  void schedule_tick();
  void tick();
  void record(std::span<const std::byte> frames);

  Scheduler& scheduler_;
  const PinId id_;
  const PinConfig config_;
  bool present_ = true;
  std::optional<WAVEFORMATEXTENSIBLE> format_;  ///< of the application; none: it isn't there
  Sink sink_;
  Source source_;
  StreamClock clock_;
  TimerId timer_ = 0;
  std::vector<PendingRequest> waiting_;
  std::vector<PendingRequest> transfers_;
  std::vector<std::byte> recording_;
  std::vector<std::byte> scratch_;
  std::vector<FeedbackRecord> feedback_log_;
  PinStats stats_;
  SimEvent request_done_;
};

}  // namespace sonivo::sim
