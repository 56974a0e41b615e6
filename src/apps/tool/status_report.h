#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sonivo::tool {

/// What the service tells of one direction.
struct StreamReport {
  std::string state;     ///< one of eWaitVirtualDriver, eWaitVirtualStream, eVirtualStreaming, ePhysicalStreaming
  std::string endpoint;  ///< physical; empty: none
  std::vector<std::string> endpoints;  ///< that there are; none: it doesn't tell
  std::uint64_t streams = 0;
  std::uint64_t underruns = 0;
  std::uint64_t overruns = 0;
  std::int32_t feedback = 0;  ///< -1, 0 or 1
  double fill_mean_ms = 0;
  double fill_min_ms = 0;
};

/// What it tells of the microphone besides: the work of the chain.
struct CaptureReport : StreamReport {
  std::uint64_t blocks = 0;
  std::uint64_t silenced = 0;
  std::uint64_t unenhanced = 0;
  double chain_latency_ms = 0;  ///< of the chain alone; 0 without one that runs
  double execute_mean_us = 0;
  double execute_max_us = 0;
  double load = 0;  ///< share of a block's time
};

/// What the service tells of itself.
struct ServiceReport {
  std::uint32_t generation = 0;
  std::uint32_t function = 0;
  std::uint32_t generation_mic = 0;
  std::uint32_t function_mic = 0;
  std::string chain;  ///< that runs now, one of none, keycancel, beamforming, ai
  bool driver_ready = false;
  std::string pause = "none";  ///< why it leaves the driver alone, one of none, locked, asleep
  std::uint32_t meeting_mode = 0;
  bool room_correction = false;
  bool headphones = false;
  bool auto_mute = false;
  CaptureReport capture;
  StreamReport render;
  std::string trouble;                ///< what is wrong now; empty: nothing
  std::string last_trouble;           ///< also what is over; empty: there was none
  std::uint64_t last_trouble_ms = 0;  ///< when it was noted, on the machine's monotonic clock

  /// It is silent then, and reports again when the session is unlocked or the machine wakes.
  bool is_paused() const { return pause != "none"; }
  bool is_healthy() const { return (driver_ready || is_paused()) && trouble.empty(); }
};

/// A report that can't be relied on; the text says why.
class ReportFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads the JSON of a report of version 5, in which each member must be there and be of its kind. Throws ReportFault.
ServiceReport read_service_report(std::string_view json);

}  // namespace sonivo::tool
