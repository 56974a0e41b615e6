// What the classic chains cost, and public libraries on the same input: speech with typing, 10 ms of 48 kHz audio per
// iteration. Ends with the ratios that count, from medians of CPU time, and the memory of what is open.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "apps/tool/param_blob.h"
#include "classic/fixed_beamformer.h"
#include "classic/key_reduction.h"
#include "classic/noise_reduction.h"
#include "peers/classic.h"
#include "peers/peers.h"
#include "quality/params.h"
#include "quality/recording.h"

namespace {

using namespace sonivo;
using namespace sonivo::bench;

struct Input {
  std::vector<float> mono;
  std::vector<float> stereo;  ///< the second microphone hears it a quarter of a millisecond later
  std::vector<bool> key_pressed;
  std::size_t blocks = 0;
};

const Input& input() {
  static const Input instance = [] {
    const auto voices = speak("build/quality");
    const Recording recording(voices[0].speech, make_noise(NoiseKind::keys, 0, voices), NoiseKind::keys, 5);
    Input in;
    in.blocks = recording.mixture.size() / kBlock;
    in.key_pressed.resize(in.blocks);
    for (std::size_t n = 0; n < in.blocks * kBlock; ++n) {
      in.mono.push_back(static_cast<float>(recording.mixture[n]));
      in.stereo.push_back(in.mono.back());
      in.stereo.push_back(n < 12 ? 0.0f : in.mono[n - 12]);
    }
    for (const std::size_t press : recording.presses) {
      if (press / kBlock < in.blocks) in.key_pressed[press / kBlock] = true;
    }
    return in;
  }();
  return instance;
}

const classic::KeyCancelParam& key_cancel_param() {
  static const auto param = read_params<classic::KeyCancelParam>(std::nullopt, "keycancel");
  return param;
}
const classic::BeamFormingKeyCancelParam& beam_forming_param() {
  static const auto param = read_params<classic::BeamFormingKeyCancelParam>(std::nullopt, "beamforming");
  return param;
}

using Start = std::function<std::unique_ptr<Enhancer>()>;

struct Subject {
  std::string name;
  std::size_t channels;
  Start start;
};

std::vector<Subject> subjects() {
  const auto key_cancel_with = [](std::size_t channels, ClassicStages stages) -> Start {
    return [=] { return key_cancel(key_cancel_param(), channels, stages); };
  };
  const auto webrtc_with = [](std::size_t channels, WebRtcParts parts) -> Start {
    return [=] { return webrtc(channels, parts); };
  };
  const WebRtcParts noise{.noise_suppression = true};
  const WebRtcParts transient{.transient_suppressor = true};
  const WebRtcParts beam{.beamformer = true};
  const WebRtcParts all{.noise_suppression = true, .transient_suppressor = true, .beamformer = true};
  return {
      {"noise stage/1", 1, key_cancel_with(1, {.key = false, .noise = true})},
      {"key stage/1", 1, key_cancel_with(1, {.key = true, .noise = false})},
      {"key and noise stage/1", 1, key_cancel_with(1, {})},
      {"key and noise stage/2", 2, key_cancel_with(2, {})},
      {"beamforming chain/2", 2, [] { return beam_forming(beam_forming_param()); }},
      {"speex noise suppression/1", 1, [] { return speex_noise_suppression(1, kSpeexDefaultDb); }},
      {"speex noise suppression/2", 2, [] { return speex_noise_suppression(2, kSpeexDefaultDb); }},
      {"webrtc noise suppression/1", 1, webrtc_with(1, noise)},
      {"webrtc noise suppression/2", 2, webrtc_with(2, noise)},
      {"webrtc transient suppressor/1", 1, webrtc_with(1, transient)},
      {"webrtc transient suppressor/2", 2, webrtc_with(2, transient)},
      {"webrtc beamformer/2", 2, webrtc_with(2, beam)},
      {"webrtc all three/2", 2, webrtc_with(2, all)},
  };
}

void run_subject(benchmark::State& state, const Subject& subject) {
  const std::vector<float>& samples = subject.channels == 1 ? input().mono : input().stereo;
  const std::size_t block_samples = kBlock * subject.channels;
  const auto enhancer = subject.start();
  std::vector<float> block(block_samples);
  std::size_t at = 0;
  for (auto _ : state) {
    std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(at * block_samples), block_samples, block.begin());
    enhancer->process(block.data(), input().key_pressed[at]);
    benchmark::DoNotOptimize(block.data());
    at = at + 1 == input().blocks ? 0 : at + 1;
  }
}

/// The stages themselves take frames of 192 samples: five of them are two blocks, and two iterations.
template <class Step>
void run_stage(benchmark::State& state, Step&& step) {
  constexpr std::size_t kFrames = 5;
  constexpr std::size_t kFrame = classic::kHop;
  const std::size_t frames = input().mono.size() / kFrame;
  std::array<float, kFrame> frame;
  std::array<float, kFrame> out;
  std::size_t at = 0;
  while (state.KeepRunningBatch(2)) {
    for (std::size_t f = 0; f < kFrames; ++f) {
      const float* const from = input().mono.data() + at * kFrame;
      std::transform(from, from + kFrame, frame.begin(), [](float x) { return 32768.0f * x; });
      step(frame, out);
      benchmark::DoNotOptimize(out);
      at = at + 1 == frames ? 0 : at + 1;
    }
  }
}

using Frame = std::array<float, classic::kHop>;

void NoiseReductionClass(benchmark::State& state) {
  classic::NoiseReduction stage(key_cancel_param());
  run_stage(state, [&](const Frame& in, Frame& out) { stage.process(in, in, out); });
}

void TwoBeamNoiseReductionClass(benchmark::State& state) {
  classic::TwoBeamNoiseReduction stage(beam_forming_param());
  run_stage(state, [&](const Frame& in, Frame& out) { stage.process({in, in}, {in, in}, out); });
}

void KeyReductionClass(benchmark::State& state) {
  classic::KeyReduction<1> stage(key_cancel_param().pulse);
  run_stage(state, [&](const Frame& in, Frame& out) { stage.process({in}, false, {out}); });
}

void TwoBeamKeyReductionClass(benchmark::State& state) {
  classic::KeyReduction<2> stage(beam_forming_param().pulse);
  Frame second;
  run_stage(state, [&](const Frame& in, Frame& out) { stage.process({in, in}, false, {out, second}); });
}

void FixedBeamformerClass(benchmark::State& state) {
  classic::FixedBeamformer stage(beam_forming_param());
  Frame second;
  run_stage(state, [&](const Frame& in, Frame& out) { stage.process(in, in, out, second); });
}

BENCHMARK(NoiseReductionClass);
BENCHMARK(TwoBeamNoiseReductionClass);
BENCHMARK(KeyReductionClass);
BENCHMARK(TwoBeamKeyReductionClass);
BENCHMARK(FixedBeamformerClass);

/// Prints as usual and keeps the median of each subject, in microseconds.
class Medians final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
        us_[run.run_name.function_name] = run.GetAdjustedCPUTime() / 1000;
    }
  }

  bool has(const std::string& name) const { return us_.count(name) != 0; }
  double us(const std::string& name) const { return us_.at(name); }

 private:
  std::map<std::string, double> us_;
};

struct Target {
  const char* ours;
  const char* peer;
  double ratio;
};

constexpr Target kTargets[] = {
    {"noise stage/1", "speex noise suppression/1", 0.4},
    {"noise stage/1", "webrtc noise suppression/1", 0.4},
    {"key stage/1", "webrtc transient suppressor/1", 0.4},
    {"beamforming chain/2", "webrtc all three/2", 0.35},
};

void print_ratios(const Medians& medians) {
  std::cout << "\nMedian CPU time per 10 ms of audio, one core\n" << std::fixed;
  for (const Target& target : kTargets) {
    if (!medians.has(target.ours) || !medians.has(target.peer)) continue;
    const double ours = medians.us(target.ours);
    const double peer = medians.us(target.peer);
    std::cout << std::left << std::setw(22) << target.ours << std::right << std::setprecision(2) << std::setw(7) << ours
              << " us   " << std::left << std::setw(30) << target.peer << std::right << std::setw(7) << peer
              << " us   ratio " << std::setprecision(3) << ours / peer << " of at most " << target.ratio << "  "
              << (ours / peer <= target.ratio ? "met" : "missed") << '\n';
  }
}

std::size_t heap_bytes() {
  const auto heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

/// microphones: that each of the four channels of a chain of ours hears; 0 for a peer.
void print_memory(const std::string& name, const Start& start, std::size_t microphones, std::size_t param_bytes) {
  start();  // tables that all share
  const std::size_t before = heap_bytes();
  const auto open = start();
  const std::size_t bytes = heap_bytes() - before;
  std::cout << std::left << std::setw(30) << name << std::right << std::setw(9) << bytes << " bytes";
  if (microphones != 0) {
    const std::size_t channel = (bytes - param_bytes) / 4;
    std::cout << ", a channel beside the parameters " << channel << ", which is " << channel / microphones
              << " per microphone of at most 65536";
  }
  std::cout << '\n';
}

void print_memory_table() {
  std::cout << "\nHeap of an open object; a chain of ours always has four channels, of one or two microphones each\n";
  print_memory(
      "CKeyCancel", [] { return key_cancel(key_cancel_param(), 1); }, 1, sizeof(classic::KeyCancelParam));
  print_memory(
      "CBeamFormingKeyCancel", [] { return beam_forming(beam_forming_param()); }, 2,
      sizeof(classic::BeamFormingKeyCancelParam));
  for (const Subject& subject : subjects()) {
    if (subject.name.starts_with("speex") || subject.name.starts_with("webrtc"))
      print_memory(subject.name, subject.start, 0, 0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  std::string repetitions = "--benchmark_repetitions=9";
  std::string interleaved = "--benchmark_enable_random_interleaving=true";
  std::string short_runs = "--benchmark_min_time=0.1";
  std::string medians_only = "--benchmark_report_aggregates_only=true";
  for (std::string* option : {&repetitions, &interleaved, &short_runs, &medians_only})
    arguments.insert(arguments.begin() + 1, option->data());
  auto count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  try {
    for (const Subject& subject : subjects())
      benchmark::RegisterBenchmark(subject.name.c_str(), [subject](benchmark::State& s) { run_subject(s, subject); });
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    print_ratios(medians);
    print_memory_table();
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
