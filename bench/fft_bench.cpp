// Transforms of the classic chain, for each instruction set that runs here. Where FFTW is installed, each transform has
// FFTW's time for the same work beside it (out of place and measured plans, its fastest form) and ours over FFTW's as
// "ratio". FFTW chooses its own instruction set; the packaged one knows SSE2 and AVX.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "classic/analysis.h"
#include "classic/fft.h"
#include "classic/input_filter.h"
#include "classic/real_fft.h"
#include "classic/synthesis.h"

#ifdef SONIVO_BENCH_FFTW
#include <fftw3.h>
#endif

namespace {

using namespace sonivo::classic;

std::vector<float> noise(std::size_t count) {
  std::vector<float> samples(count);
  unsigned state = 1;
  for (float& sample : samples) {
    state = state * 1664525u + 1013904223u;
    sample = static_cast<float>(state >> 16) - 32768.0f;
  }
  return samples;
}

// Best of several rounds, in microseconds per call: the same for ours and the peer's.
template <class Work>
double best_time(Work work) {
  using Clock = std::chrono::steady_clock;
  double best = 1e9;
  for (int round = 0; round < 40; ++round) {
    const auto start = Clock::now();
    for (int i = 0; i < 500; ++i) {
      work();
      benchmark::ClobberMemory();
    }
    best = std::min(best, std::chrono::duration<double, std::micro>(Clock::now() - start).count() / 500);
  }
  return best;
}

#ifdef SONIVO_BENCH_FFTW
double peer_complex(std::size_t points) {
  fftwf_complex* x = fftwf_alloc_complex(points);
  fftwf_complex* X = fftwf_alloc_complex(points);
  const fftwf_plan plan = fftwf_plan_dft_1d(static_cast<int>(points), x, X, FFTW_FORWARD, FFTW_MEASURE);
  for (std::size_t n = 0; n < points; ++n) x[n][0] = x[n][1] = 1.0f;
  const double time = best_time([&] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
  fftwf_free(x);
  fftwf_free(X);
  return time;
}

double peer_real(std::size_t points) {
  float* x = fftwf_alloc_real(points);
  fftwf_complex* X = fftwf_alloc_complex(points / 2 + 1);
  const fftwf_plan plan = fftwf_plan_dft_r2c_1d(static_cast<int>(points), x, X, FFTW_MEASURE);
  std::fill_n(x, points, 1.0f);
  const double time = best_time([&] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
  fftwf_free(x);
  fftwf_free(X);
  return time;
}
#endif

template <class Work, class Peer>
void compare(benchmark::State& state, Work work, [[maybe_unused]] Peer peer) {
  for (auto _ : state) {
    work();
    benchmark::ClobberMemory();
  }
#ifdef SONIVO_BENCH_FFTW
  const double theirs = peer();
  state.counters["fftw_us"] = theirs;
  state.counters["ratio"] = best_time(work) / theirs;
#endif
}

void complex_forward(benchmark::State& state, const Kernels& kernels, std::size_t points) {
  const Fft fft(points, kernels);
  alignas(64) std::array<float, 1024> re{}, im{};  // zeros: values in place would grow without bound
  compare(
      state, [&] { fft.forward(re.data(), im.data()); },
      [&] {
#ifdef SONIVO_BENCH_FFTW
        return peer_complex(points);
#endif
      });
}

void real_forward(benchmark::State& state, const Kernels& kernels, std::size_t points) {
  const RealFft fft(points, kernels);
  alignas(64) std::array<float, 512> even{}, odd{};
  std::array<ComplexFloat, 512> X{};
  compare(
      state, [&] { fft.forward_doubled(even.data(), odd.data(), 0, points / 2, X.data()); },
      [&] {
#ifdef SONIVO_BENCH_FFTW
        return peer_real(points);
#endif
      });
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
