// Feature extraction: log mel features of an hour of audio, its parts, and the transforms. Where FFTW is installed,
// each transform has FFTW's time for the same work beside it (measured plans, its fastest form) and ours over FFTW's as
// "ratio". FFTW chooses its own instruction set; the packaged one knows SSE2 and AVX.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "feature_extractor/feature_extractor.h"
#include "feature_extractor/real_fft.h"
#include "feature_extractor/split_radix_fft.h"

#ifdef SONIVO_BENCH_FFTW
#include <fftw3.h>
#endif

namespace {

using namespace sonivo;

constexpr std::int64_t kHour = 3600 * 16000;

/// So many samples of noise.
class Noise : public Input<short> {
 public:
  explicit Noise(std::int64_t count) : left_(count) {
    unsigned state = 1;
    for (short& sample : samples_) {
      state = state * 1664525u + 1013904223u;
      sample = static_cast<short>(state >> 18);
    }
  }
  int data(std::vector<short>& out, int require, bool) override {
    const int count = static_cast<int>(std::min<std::int64_t>(left_, require));
    const std::size_t size = out.size();
    out.resize(size + static_cast<std::size_t>(count));
    for (std::size_t i = size; i < out.size(); ++i) out[i] = samples_[next_++ % kSamples];
    left_ -= count;
    return count;
  }
  bool end() override { return left_ == 0; }

 private:
  static constexpr std::size_t kSamples = 1 << 16;

  std::vector<short> samples_ = std::vector<short>(kSamples);
  std::size_t next_ = 0;
  std::int64_t left_;
};

FeatureOptions log_mel(float dither) {
  FeatureOptions options;
  options.num_mel_bins = 40;
  options.dither = dither;
  return options;
}

// 25 ms every 10 ms, 40 bins.
void hour_of_log_mel_features(benchmark::State& state) {
  const FeatureOptions options = log_mel(static_cast<float>(state.range(0)));
  std::vector<float> out;
  for (auto _ : state) {
    FrameData frames(options, std::make_shared<Noise>(kHour));
    FeatureExtractor extractor(options);
    while (frames.has_next()) extractor.compute(frames, out);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(hour_of_log_mel_features)->ArgName("dither")->Arg(0)->Arg(1)->Unit(benchmark::kSecond);

void reading_a_frame(benchmark::State& state) {
  FrameData frames(log_mel(0.0f), std::make_shared<Noise>(INT64_MAX));
  std::vector<float> frame;
  for (auto _ : state) {
    frames.has_next();
    frames.extract(frame, nullptr);
    benchmark::DoNotOptimize(frame.data());
  }
}
BENCHMARK(reading_a_frame);

void mel_bins_of_a_spectrum(benchmark::State& state) {
  const MelBanks mel(log_mel(0.0f), 512, 1.0f);
  const std::vector<float> spectrum(256, 1.0f);
  std::vector<float> out(40);
  for (auto _ : state) {
    mel.compute(spectrum.data(), out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(mel_bins_of_a_spectrum);

#ifdef SONIVO_BENCH_FFTW
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

double peer_real(std::size_t points) {
  float* x = fftwf_alloc_real(points);
  fftwf_complex* X = fftwf_alloc_complex(points / 2 + 1);
  const fftwf_plan plan = fftwf_plan_dft_r2c_1d(static_cast<int>(points), x, X, FFTW_MEASURE);
  std::fill_n(x, points, 0.0f);
  const double time = best_time([&] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
  fftwf_free(x);
  fftwf_free(X);
  return time;
}

double peer_complex(std::size_t points) {
  fftwf_complex* x = fftwf_alloc_complex(points);
  fftwf_complex* X = fftwf_alloc_complex(points);
  const fftwf_plan plan = fftwf_plan_dft_1d(static_cast<int>(points), x, X, FFTW_FORWARD, FFTW_MEASURE);
  for (std::size_t n = 0; n < points; ++n) x[n][0] = x[n][1] = 0.0f;
  const double time = best_time([&] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
  fftwf_free(x);
  fftwf_free(X);
  return time;
}
#endif

template <class Work>
void compare(benchmark::State& state, Work work, [[maybe_unused]] double (*peer)(std::size_t)) {
  for (auto _ : state) {
    work();
    benchmark::ClobberMemory();
  }
#ifdef SONIVO_BENCH_FFTW
  const double theirs = peer(static_cast<std::size_t>(state.range(0)));
  state.counters["fftw_us"] = theirs;
  state.counters["ratio"] = best_time(work) / theirs;
#endif
}

#ifndef SONIVO_BENCH_FFTW
constexpr double (*peer_real)(std::size_t) = nullptr;
constexpr double (*peer_complex)(std::size_t) = nullptr;
#endif

// Of zeros: values in place would grow without bound.
void real_forward(benchmark::State& state) {
  RealFft fft(static_cast<std::size_t>(state.range(0)));
  std::vector<float> x(fft.points());
  compare(
      state, [&] { fft.forward(x); }, peer_real);
}
BENCHMARK(real_forward)->RangeMultiplier(2)->Range(128, 4096)->Arg(400)->Arg(1102)->Unit(benchmark::kMicrosecond);

void complex_forward(benchmark::State& state) {
  const SplitRadixComplexFft<float> fft(static_cast<std::size_t>(state.range(0)));
  std::vector<float> re(fft.points()), im(fft.points());
  compare(
      state, [&] { fft.forward(re.data(), im.data()); }, peer_complex);
}
BENCHMARK(complex_forward)->RangeMultiplier(2)->Range(64, 2048)->Unit(benchmark::kMicrosecond);

}  // namespace
