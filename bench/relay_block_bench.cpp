// One 10 ms block through each direction of the relay, the simulated machine under it included: wake-up, transfer,
// packet, ring, feedback. Argument: bits of a sample. The time is that of one block of two channels.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "platform/sim/machine.h"
#include "relay/audio_control.h"

namespace {

using namespace sonivo;

constexpr std::uint32_t kBatchMs = 1000;
constexpr std::int64_t kBlocksPerBatch = kBatchMs / 10;

void fill(std::span<std::byte> frames) { std::fill(frames.begin(), frames.end(), std::byte{1}); }
void drop(std::span<const std::byte>) {}

WAVEFORMATEXTENSIBLE format(const benchmark::State& state) {
  return pcm_format(48000, static_cast<std::uint16_t>(state.range(0)), 2);
}

void run_batches(benchmark::State& state, sim::SimMachine& machine, CAudioControl& relay) {
  relay.SetMuteWindow(WindowHandle{1});
  relay.SetEndpointForce(DataFlow::capture, {});
  relay.SetEndpointForce(DataFlow::render, {});
  relay.Start();
  machine.run_for(2 * kBatchMs);
  while (state.KeepRunningBatch(kBlocksPerBatch)) machine.run_for(kBatchMs);
  relay.Stop();
}

void MicrophoneBlock(benchmark::State& state) {
  sim::SimMachine machine;
  CAudioControl relay(machine.seams());
  machine.endpoint(sim::kMicArray).set_source(fill);
  machine.driver().open_recorder(format(state), drop);
  run_batches(state, machine, relay);
}

void SpeakerBlock(benchmark::State& state) {
  sim::SimMachine machine;
  CAudioControl relay(machine.seams());
  machine.endpoint(sim::kSpeakers).set_sink(drop);
  machine.driver().open_player(format(state), fill);
  run_batches(state, machine, relay);
}

BENCHMARK(MicrophoneBlock)->Arg(16)->Arg(24)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(SpeakerBlock)->Arg(16)->Arg(24)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
