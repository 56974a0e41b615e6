#include "apps/tool/simulated_relay.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <iomanip>
#include <memory>
#include <ostream>
#include <span>
#include <sstream>
#include <string_view>

#include "apps/tool/failure.h"
#include "apps/tool/share_folder.h"
#include "base/trace.h"
#include "platform/sim/machine.h"
#include "relay/audio_control.h"
#include "relay/chains.h"
#include "relay/effect_properties.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kSettleMs = 1000;      // the streams come to wait for an application
constexpr std::uint32_t kSliceMs = 100;        // virtual time between two looks at the progress
constexpr std::uint32_t kLongestRestMs = 100;  // on top of one engine period, for the buffers on the way to run out
constexpr std::uint32_t kEnhancementMs = 300;  // more of it, for chunks on the way through the network

constexpr WindowHandle kMuteWindow{1};

sim::Config config_for(const PcmAudio& input, const NotebookSetup& setup) {
  sim::Config config;
  config.rate_hz = input.rate_hz;
  config.hardware_period = setup.period_frames;
  config.pins.drift_ppm = setup.drift_ppm;
  config.folder = share_folder();
  return config;
}

/// Frames to let come out so that the last of the input is among them.
std::size_t frames_to_await(const PcmAudio& input, const NotebookSetup& setup) {
  const std::uint32_t rest_ms = kLongestRestMs + (setup.chain == Chain::ai ? kEnhancementMs : 0);
  return input.frames() + input.rate_hz * rest_ms / 1000 + setup.period_frames;
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

/// The audio once, then silence. It must outlive the source.
sim::Source source_of(const PcmAudio& audio) {
  return [rest = std::span(audio.bytes)](std::span<std::byte> frames) mutable {
    const std::size_t count = std::min(rest.size(), frames.size());
    std::copy_n(rest.begin(), count, frames.begin());
    std::fill(frames.begin() + static_cast<std::ptrdiff_t>(count), frames.end(), std::byte{0});
    rest = rest.subspan(count);
  };
}

/// Appends to the audio, which must outlive the sink.
sim::Sink sink_of(PcmAudio& audio) {
  return [&audio](std::span<const std::byte> frames) {
    audio.bytes.insert(audio.bytes.end(), frames.begin(), frames.end());
  };
}

/// The application starts to record or to play, and so the audio to flow.
void open_application(sim::SimMachine& machine, Direction direction, const PcmAudio& input, PcmAudio& output) {
  if (direction == Direction::capture) {
    machine.endpoint(sim::kMicArray).set_source(source_of(input));
    machine.driver().open_recorder(input.format(), sink_of(output));
  } else {
    machine.endpoint(sim::kSpeakers).set_sink(sink_of(output));
    machine.driver().open_player(input.format(), source_of(input));
  }
}

std::vector<std::byte> bytes_of(float value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  return {bytes.begin(), bytes.end()};
}

std::vector<std::byte> with_flags(std::initializer_list<std::byte> flags, const std::vector<std::byte>& params) {
  std::vector<std::byte> value(flags);
  value.insert(value.end(), params.begin(), params.end());
  return value;
}

/// The third chain open, in the model of the setup as it would be in an enrolled one.
void open_enhancement(CAudioControl& control, const std::string& model) {
  control.ChangeAISpeechEnhanceBeamFormingKeyCancelState(true);
  control.ChangeAISpeechEnhanceBeamFormingState(true);
  control.ChangeAISpeechEnhanceState(true);
  control.SetAISpeechEnhancePmodel(model.c_str());
  if (failed(control.SetAISpeechEnhanceOpen())) throw Failure("the ai chain does not open; add --verbose to see why");
  control.UpdateAISpeechEnhanceSetAiModelState(true);
}

/// Makes the notebook one whose microphone goes through the chain, with everything in it switched on.
void choose_chain(sim::SimMachine& machine, CAudioControl& control, const NotebookSetup& setup) {
  constexpr std::byte kOn{1};
  const std::string mic = sim::kMicArray;
  if (setup.chain == Chain::keycancel) {
    control.SetGenAndFunction(8, 0, 2, 1);
    machine.fx().set_effect(mic, PKEY_NVC_MTGMIC_KC_Param, with_flags({kOn, kOn}, setup.params));
  } else if (setup.chain == Chain::beamforming) {
    control.SetGenAndFunction(8, 0, 3, 2);
    control.ChangeBeamFormingState(true);
    machine.fx().set_effect(mic, PKEY_NVC_MTGMIC_BF_KC_Param, with_flags({kOn, kOn, kOn}, setup.params));
  } else if (setup.chain == Chain::ai) {
    control.SetGenAndFunction(8, 0, 5, 8);
    machine.fx().set_effect(mic, PKEY_NVC_MTGMIC_BF_KC_Param, with_flags({kOn, kOn, kOn}, setup.params));
    machine.fx().set_effect(mic, PKEY_NVC_AI_Strength, bytes_of(setup.strength));
  } else {
    control.SetGenAndFunction(0, 0, 0, 0);
  }
}

double seconds_of(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

RelayedAudio relay_on_notebook(const PcmAudio& input, const NotebookSetup& setup, const OnProgress& on_progress) {
  RelayedAudio relayed;
  relayed.realtime = setup.realtime;
  PcmAudio& output = relayed.audio;
  output.rate_hz = input.rate_hz;
  output.bits = input.bits;
  output.channels = input.channels;
  const std::size_t bytes_to_await = frames_to_await(input, setup) * input.bytes_per_frame();
  output.bytes.reserve(bytes_to_await + kSliceMs * input.format().nAvgBytesPerSec / 1000);

  sim::SimMachine machine(config_for(input, setup));
  sim::Scheduler& scheduler = machine.scheduler();
  const auto traces = traces_to(setup.traces, scheduler);
  const bool waits = setup.chain == Chain::ai && !setup.realtime;
  CAudioControl control(machine.seams(), waits ? MakePatientChains : MakeChains);
  choose_chain(machine, control, setup);
  control.SetMuteWindow(kMuteWindow);
  control.SetEndpointForce(DataFlow::capture, {});
  control.SetEndpointForce(DataFlow::render, {});
  if (setup.chain == Chain::ai) open_enhancement(control, setup.model);
  control.Start();
  machine.run_for(kSettleMs);

  scheduler.set_realtime(setup.realtime);
  const auto real_start = std::chrono::steady_clock::now();
  const sim::Time virtual_start = scheduler.now();
  open_application(machine, setup.direction, input, output);
  bool flows = true;
  while (flows && output.bytes.size() < bytes_to_await) {
    const std::size_t before = output.bytes.size();
    machine.run_for(kSliceMs);
    flows = output.bytes.size() > before;
    on_progress(output.frames());
  }
  relayed.audio_seconds = static_cast<double>(scheduler.now() - virtual_start) / sim::kSecond;
  relayed.elapsed_seconds = seconds_of(std::chrono::steady_clock::now() - real_start);
  scheduler.set_realtime(false);

  machine.driver().close_client(setup.direction == Direction::capture ? sim::PinId::mic : sim::PinId::speaker);
  control.Stop();
  control.SetAISpeechEnhanceClose();
  if (!flows) throw Failure("the relay stands still; add --verbose to see why");
  relayed.statistics = setup.direction == Direction::capture ? control.CaptureStatistics() : control.RenderStatistics();
  output.bytes.resize(bytes_to_await);
  return relayed;
}

}  // namespace sonivo::tool
