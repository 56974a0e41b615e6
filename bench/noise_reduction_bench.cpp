#include <benchmark/benchmark.h>

#include <array>
#include <span>
#include <vector>

#include "../tests/classic/noise/noise_parameters.h"
#include "../tests/classic/noise/signals.h"
#include "classic/band_level.h"
#include "classic/noise_reduction.h"

namespace {

using namespace sonivo::classic;

constexpr std::size_t kFrames = 256;
constexpr std::size_t kPieces = 4;
constexpr double kFramesPer10Ms = 2.5;

/// Speech in noise as the key stage leaves it and as it was before, frame by frame and over again.
struct Frames {
  signals::Samples clean = signals::by_name("speech", kFrames* kHop);
  signals::Samples raw = signals::by_name("clicks", kFrames* kHop);
  std::size_t count = kFrames;
  std::size_t index = 0;

  void next() { index = (index + 1) % count; }
  std::span<const float> of(const signals::Samples& x) const { return std::span(x).subspan(index * kHop, kHop); }
};

/// Frames per second, and microseconds for 10 ms of audio.
void report(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.counters["us_per_10ms"] = benchmark::Counter(static_cast<double>(state.iterations()) / kFramesPer10Ms / 1e6,
                                                     benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void OneSignal(benchmark::State& state) {
  const auto param = parameters::one_channel(parameters::full_bands(), static_cast<int>(state.range(0)));
  NoiseReduction stage(*param);
  Frames frames;
  std::array<float, kHop> out;
  for (auto _ : state) {
    stage.process(frames.of(frames.clean), frames.of(frames.raw), out);
    benchmark::DoNotOptimize(out);
    frames.next();
  }
  report(state);
}
BENCHMARK(OneSignal)->Arg(0)->Arg(2)->ArgName("dly_frame");

void TwoBeams(benchmark::State& state) {
  const auto param = parameters::two_beams(parameters::full_bands(), 0);
  TwoBeamNoiseReduction stage(*param);
  Frames frames;
  std::array<float, kHop> out;
  for (auto _ : state) {
    const auto clean = frames.of(frames.clean), raw = frames.of(frames.raw);
    stage.process({clean, raw}, {raw, clean}, out);
    benchmark::DoNotOptimize(out);
    frames.next();
  }
  report(state);
}
BENCHMARK(TwoBeams);

/// The pieces of a frame of one signal.
struct Pieces {
  std::unique_ptr<KeyCancelParam> param = parameters::one_channel(parameters::full_bands(), 0);
  Frames frames;
  Analysis analysis{param->noise.ana};
  BeamTracker beam{param->head, param->noise};
  SoundLevels sound{param->head, param->noise};
  NoiseReducer reducer{param->ns_nr, std::span(param->head.nbin_param_tbl)};
  NoiseFilter filter{param->head, param->noise, param->ns_nr};
  std::vector<std::array<ComplexFloat, kBins>> Y{kPieces}, Z{kPieces};

  Pieces() {
    for (std::size_t f = 0; f < kFrames; ++f, frames.next()) {
      analysis.process(frames.of(frames.clean), frames.of(frames.raw), Y[f % kPieces], Z[f % kPieces]);
    }
    frames.count = kPieces;
  }
};

void AnalysisOfTwo(benchmark::State& state) {
  Pieces pieces;
  for (auto _ : state) {
    const std::size_t f = pieces.frames.index;
    pieces.analysis.process(pieces.frames.of(pieces.frames.clean), pieces.frames.of(pieces.frames.raw), pieces.Y[f],
                            pieces.Z[f]);
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(AnalysisOfTwo);

void BandLevels(benchmark::State& state) {
  Pieces pieces;
  FineBands level;
  for (auto _ : state) {
    band_level(pieces.param->head.syk2, pieces.Y[pieces.frames.index], level);
    benchmark::DoNotOptimize(level);
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(BandLevels);

void BeamTracking(benchmark::State& state) {
  Pieces pieces;
  for (auto _ : state) {
    pieces.beam.process(Magnitudes(pieces.Y[pieces.frames.index]), Magnitudes(pieces.Z[pieces.frames.index]), false);
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(BeamTracking);

void VoiceDetection(benchmark::State& state) {
  Pieces pieces;
  for (auto _ : state) {
    pieces.sound.process(Magnitudes(pieces.Y[pieces.frames.index]));
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(VoiceDetection);

void Gain(benchmark::State& state) {
  Pieces pieces;
  std::vector<std::array<FineBands, 2>> levels(kPieces);
  for (auto& [signal, noise] : levels) {
    pieces.beam.process(Magnitudes(pieces.Y[pieces.frames.index]), Magnitudes(pieces.Z[pieces.frames.index]), false);
    const auto latest = pieces.beam.levels();
    std::copy(latest.signal.begin(), latest.signal.end(), signal.begin());
    std::copy(latest.noise.begin(), latest.noise.end(), noise.begin());
    pieces.frames.next();
  }
  for (auto _ : state) {
    const auto& [signal, noise] = levels[pieces.frames.index];
    pieces.reducer.process({signal, noise});
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(Gain);

void GainAndSynthesis(benchmark::State& state) {
  Pieces pieces;
  std::array<float, kHop> out;
  FineBands gain;
  gain.fill(0.5f);
  for (auto _ : state) {
    const auto& Y = pieces.Y[pieces.frames.index];
    std::copy(Y.begin(), Y.end(), pieces.filter.spectrum().begin());
    pieces.filter.process(gain, true, out);
    benchmark::DoNotOptimize(out);
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(GainAndSynthesis);

void SynthesisOfOne(benchmark::State& state) {
  Pieces pieces;
  Synthesis synthesis(pieces.param->noise.syn);
  std::array<float, kHop> out;
  for (auto _ : state) {
    synthesis.process(pieces.Y[pieces.frames.index], out);
    benchmark::DoNotOptimize(out);
    pieces.frames.next();
  }
  report(state);
}
BENCHMARK(SynthesisOfOne);

}  // namespace
