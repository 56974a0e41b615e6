#include "apps/tool/simulated_relay.h"

#include <chrono>
#include <iomanip>
#include <memory>
#include <ostream>
#include <sstream>
#include <string_view>

#include "apps/tool/failure.h"
#include "base/trace.h"
#include "platform/sim/machine.h"
#include "relay/audio_control.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kSettleMs = 1000;      // the streams come to wait for an application
constexpr std::uint32_t kSliceMs = 100;        // virtual time between two looks at the progress
constexpr std::uint32_t kLongestRestMs = 100;  // on top of one engine period, for the buffers on the way to run out

sim::Config config_for(const PcmAudio& input, const NotebookSetup& setup) {
  sim::Config config;
  config.rate_hz = input.rate_hz;
  config.hardware_period = setup.period_frames;
  config.pins.drift_ppm = setup.drift_ppm;
  return config;
}

/// Frames to let come out so that the last of the input is among them.
std::size_t frames_to_await(const PcmAudio& input, const NotebookSetup& setup) {
  return input.frames() + input.rate_hz * kLongestRestMs / 1000 + setup.period_frames;
}

/// Writes each trace as a line that starts with the virtual time since the notebook was switched on.
std::unique_ptr<ScopedTraceSink> traces_to(std::ostream* target, sim::Scheduler& scheduler) {
  if (target == nullptr) return nullptr;
  const auto write = [target, &scheduler, start = scheduler.now()](std::string_view text) {
    const double seconds = static_cast<double>(scheduler.now() - start) / sim::kSecond;
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::ostringstream line;
    line << '[' << std::fixed << std::setprecision(6) << std::setw(12) << seconds << " s] " << text << '\n';
    *target << line.str();
  };
  return std::make_unique<ScopedTraceSink>([write](TraceLevel, std::string_view text) { write(text); }, write);
}

/// The application and the physical endpoint at both ends of the relay.
class Ends {
 public:
  Ends(sim::SimMachine& machine, const PcmAudio& input, Direction direction)
      : machine_(machine), input_(input), capture_(direction == Direction::capture) {
    if (capture_) machine_.endpoint(sim::kMicArray).set_source(sim::memory_source(input_.bytes));
  }

  void open_application() {
    if (capture_) {
      machine_.driver().open_recorder(input_.format());
    } else {
      machine_.driver().open_player(input_.format(), sim::memory_source(input_.bytes));
    }
  }

  void close_application() { machine_.driver().close_client(capture_ ? sim::PinId::mic : sim::PinId::speaker); }

  std::uint64_t frames_out() const {
    return capture_ ? machine_.driver().stats(sim::PinId::mic).frames
                    : machine_.endpoint(sim::kSpeakers).render_stats().played_frames;
  }

  std::vector<std::byte> recorded() const {
    return capture_ ? machine_.driver().recording() : machine_.endpoint(sim::kSpeakers).played();
  }

 private:
  sim::SimMachine& machine_;
  const PcmAudio& input_;
  const bool capture_;
};

double seconds_of(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

RelayedAudio relay_on_notebook(const PcmAudio& input, const NotebookSetup& setup, const OnProgress& on_progress) {
  sim::SimMachine machine(config_for(input, setup));
  const auto traces = traces_to(setup.traces, machine.scheduler());
  CAudioControl control(machine.seams());
  Ends ends(machine, input, setup.direction);

  control.SetGenAndFunction(0, 0, 0, 0);
  control.SetEndpointForce(DataFlow::capture, {});
  control.SetEndpointForce(DataFlow::render, {});
  control.Start();
  machine.run_for(kSettleMs);

  machine.scheduler().set_realtime(setup.realtime);
  const auto real_start = std::chrono::steady_clock::now();
  const sim::Time virtual_start = machine.scheduler().now();
  const std::size_t frames = frames_to_await(input, setup);
  ends.open_application();
  for (std::uint64_t out = 0; out < frames;) {
    machine.run_for(kSliceMs);
    if (ends.frames_out() == out) throw Failure("the relay stands still; add --verbose to see why");
    out = ends.frames_out();
    on_progress(out);
  }

  RelayedAudio relayed;
  relayed.audio_seconds = static_cast<double>(machine.scheduler().now() - virtual_start) / sim::kSecond;
  relayed.elapsed_seconds = seconds_of(std::chrono::steady_clock::now() - real_start);
  ends.close_application();
  machine.scheduler().set_realtime(false);
  control.Stop();

  relayed.statistics = setup.direction == Direction::capture ? control.CaptureStatistics() : control.RenderStatistics();
  relayed.audio = input;
  relayed.audio.bytes = ends.recorded();
  relayed.audio.bytes.resize(frames * input.bytes_per_frame());
  return relayed;
}

}  // namespace sonivo::tool
