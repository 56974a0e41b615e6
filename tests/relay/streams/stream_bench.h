#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "platform/sim/machine.h"
#include "relay/capture_interface.h"
#include "relay/render_interface.h"
#include "support/printers.h"
#include "support/scripted_chains.h"
#include "support/signals.h"
#include "support/trace_log.h"

namespace sonivo::test {

inline constexpr WindowHandle kWindow{0x77};
inline const WAVEFORMATEXTENSIBLE kCdStereo = pcm_format(48000, 16, 2);

/// One direction of the relay alone on a simulated notebook, everything observed. The stream isn't started.
struct StreamBench {
  explicit StreamBench(DataFlow direction, const sim::Config& config = {});
  ~StreamBench();

  /// A new stream in place of the one that is there, which isn't started; `bus` outlives it.
  void make_stream(DeviceBus& bus);
  /// Gives the stream its physical endpoint and starts it.
  void start();
  /// An application opens the virtual endpoint; what it plays, or the microphone hears, is silence.
  void open_application(const WAVEFORMATEXTENSIBLE& format = kCdStereo);
  void close_application() { machine.driver().close_client(pin); }
  /// start(), open_application(), and 5 ms later the stream is streaming.
  void start_streaming();

  /// The endpoint that the stream uses, and another one of the same flow.
  sim::EndpointModel& physical() { return machine.endpoint(physical_id); }
  sim::EndpointModel& other() { return machine.endpoint(other_id); }
  sim::EndpointModel& virtual_endpoint() { return machine.endpoint(virtual_id); }

  /// "[cap]" or "[ren]" followed by the text.
  std::string text(const std::string& rest) const { return prefix + rest; }
  std::vector<std::string> states() const { return log.states(prefix); }
  /// wParams of the recording messages so far, all of which went to kWindow.
  std::vector<std::uint64_t> recording_messages() const;

  /// Milliseconds of virtual time since the machine was made.
  std::uint64_t now_ms() const;
  /// When the operation was asked for, in whole milliseconds, of all that were asked for.
  std::vector<std::uint64_t> times_of(sim::Step step) const;
  /// The operations asked for, in order, of those listed.
  std::vector<std::string> sequence_of(std::initializer_list<sim::Step> steps) const;

  const DataFlow flow;
  const std::string prefix;
  const sim::PinId pin;
  const char* const physical_id;
  const char* const other_id;
  const char* const virtual_id;

  TraceLog log;
  mutable sim::SimMachine machine;
  ScriptedChains chains;
  std::unique_ptr<CStreamInterface> stream;
};

/// Names of operations, for comparison with sequence_of.
std::vector<std::string> names(std::initializer_list<sim::Step> steps);

/// A test of both directions.
class EachDirection : public ::testing::TestWithParam<DataFlow> {
 protected:
  EachDirection() : bench(GetParam()) {}
  bool capture() const { return GetParam() == DataFlow::capture; }

  StreamBench bench;
};

inline std::string direction_name(const ::testing::TestParamInfo<DataFlow>& info) {
  return info.param == DataFlow::capture ? "Capture" : "Render";
}

inline auto both_directions() { return ::testing::Values(DataFlow::capture, DataFlow::render); }

}  // namespace sonivo::test
