// Transforms of the classic chain, for each instruction set that runs here, beside FFTW's.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "classic/analysis.h"
#include "classic/fft.h"
#include "classic/input_filter.h"
#include "classic/real_fft.h"
#include "classic/synthesis.h"
#include "transform_race.h"

namespace {

using namespace sonivo::classic;
using sonivo::bench::Transform;

std::vector<float> noise(std::size_t count) {
  std::vector<float> samples(count);
  unsigned state = 1;
  for (float& sample : samples) {
    state = state * 1664525u + 1013904223u;
    sample = static_cast<float>(state >> 16) - 32768.0f;
  }
  return samples;
}

void complex_forward(benchmark::State& state, const Kernels& kernels, std::size_t points) {
  const Fft fft(points, kernels);
  alignas(64) std::array<float, 1024> re{}, im{};
  sonivo::bench::race(state, Transform::complex, points, [&] { fft.forward(re.data(), im.data()); });
}

void real_forward(benchmark::State& state, const Kernels& kernels, std::size_t points) {
  const RealFft fft(points, kernels);
  alignas(64) std::array<float, 512> even{}, odd{};
  std::array<ComplexFloat, 512> X{};
  sonivo::bench::race(state, Transform::real, points,
                      [&] { fft.forward_doubled(even.data(), odd.data(), 0, points / 2, X.data()); });
}

// Hop and points of a frame; the windows' values don't matter here.
struct Blocks {
  explicit Blocks(bool pulse) {
    ana.hop = syn.hop = pulse ? kPulseHop : kHop;
    ana.fft = syn.fft = pulse ? kPulseFft : kFft;
    ana.fnum_out = pulse ? kPulseBins : kBins;
    std::fill(std::begin(ana.window), std::end(ana.window), 0.01f);
    std::fill(std::begin(syn.window), std::end(syn.window), 0.01f);
  }
  AnaBlock ana{};
  SynBlock syn{};
};

// What the noise path of one channel spends on transforms in a frame of 192 samples.
void noise_path(benchmark::State& state, const Kernels& kernels) {
  const Blocks blocks(false);
  Analysis analysis(blocks.ana, kernels);
  Synthesis synthesis(blocks.syn, kernels);
  const std::vector<float> a = noise(kHop), b = noise(kHop);
  std::vector<float> out(kHop);
  std::vector<ComplexFloat> A(kBins), B(kBins);
  for (auto _ : state) {
    analysis.process(a, b, A, B);
    synthesis.process(A, out);
    benchmark::ClobberMemory();
  }
}

// The pulse path of one channel in a sub-block of 64 samples.
void pulse_path(benchmark::State& state, const Kernels& kernels) {
  const Blocks blocks(true);
  Analysis analysis(blocks.ana, kernels);
  Synthesis synthesis(blocks.syn, kernels);
  const std::vector<float> a = noise(kPulseHop);
  std::vector<float> out(kPulseHop);
  std::vector<ComplexFloat> S(kPulseBins);
  for (auto _ : state) {
    analysis.process(a, S);
    synthesis.process(S, out);
    benchmark::ClobberMemory();
  }
}

void analysis(benchmark::State& state, const Kernels& kernels, bool pulse, bool two) {
  const Blocks blocks(pulse);
  Analysis analysis(blocks.ana, kernels);
  const std::vector<float> a = noise(kHop), b = noise(kHop);
  std::vector<ComplexFloat> A(kBins), B(kBins);
  for (auto _ : state) {
    two ? analysis.process(a, b, A, B) : analysis.process(a, A);
    benchmark::ClobberMemory();
  }
}

void synthesis(benchmark::State& state, const Kernels& kernels, bool pulse, bool two) {
  const Blocks blocks(pulse);
  Synthesis synthesis(blocks.syn, kernels);
  const std::vector<ComplexFloat> A(kBins, {1.0f, 2.0f}), B = A;
  std::vector<float> a(kHop), b(kHop);
  for (auto _ : state) {
    two ? synthesis.process(A, B, a, b) : synthesis.process(A, a);
    benchmark::ClobberMemory();
  }
}

// Six sections over a frame of 192 samples.
void input_filter(benchmark::State& state, const Kernels& kernels) {
  AinBlock block{};
  block.stage_num = kFilterStages;
  for (BiquadCoefficients& section : block.coefficients) section = {0.98f, -1.96f, 0.98f, 1.9597f, -0.9603f};
  InputFilter filter(block, kernels);
  const std::vector<float> source = noise(kHop);
  std::vector<float> signal(kHop);
  for (auto _ : state) {
    signal = source;
    filter.process(signal);
    benchmark::ClobberMemory();
  }
}

const bool kRegistered = [] {
  const auto add = [](const std::string& name, auto work) {
    benchmark::RegisterBenchmark(name.c_str(), work)->Unit(benchmark::kMicrosecond);
  };
  for (const Kernels* kernels : kAllKernels) {
    if (!runs_here(*kernels)) continue;
    const std::string with = std::string("/") + kernels->name;
    for (const std::size_t points : {64u, 128u, 256u, 512u, 1024u}) {
      add("ComplexForward/" + std::to_string(points) + with,
          [=](benchmark::State& state) { complex_forward(state, *kernels, points); });
    }
    for (const std::size_t points : {128u, 1024u}) {
      add("RealForward/" + std::to_string(points) + with,
          [=](benchmark::State& state) { real_forward(state, *kernels, points); });
    }
    for (const bool pulse : {true, false}) {
      for (const bool two : {false, true}) {
        const std::string what = std::to_string(pulse ? kPulseFft : kFft) + (two ? "/two" : "/one") + with;
        add("Analysis/" + what, [=](benchmark::State& state) { analysis(state, *kernels, pulse, two); });
        add("Synthesis/" + what, [=](benchmark::State& state) { synthesis(state, *kernels, pulse, two); });
      }
    }
    add("NoisePath" + with, [=](benchmark::State& state) { noise_path(state, *kernels); });
    add("PulsePath" + with, [=](benchmark::State& state) { pulse_path(state, *kernels); });
    add("InputFilter" + with, [=](benchmark::State& state) { input_filter(state, *kernels); });
  }
  return true;
}();

}  // namespace
