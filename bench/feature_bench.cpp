// Feature extraction: log mel features of an hour of audio, its parts, and the transforms beside FFTW's.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "feature_extractor/feature_extractor.h"
#include "feature_extractor/real_fft.h"
#include "feature_extractor/split_radix_fft.h"
#include "transform_race.h"

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

void real_forward(benchmark::State& state, const WideRealFft* wide) {
  RealFft fft(static_cast<std::size_t>(state.range(0)), wide);
  std::vector<float> x(fft.points());
  bench::race(state, bench::Transform::real, fft.points(), [&] { fft.forward(x); });
}

void complex_forward(benchmark::State& state) {
  const SplitRadixComplexFft<float> fft(static_cast<std::size_t>(state.range(0)));
  std::vector<float> re(fft.points()), im(fft.points());
  bench::race(state, bench::Transform::complex, fft.points(), [&] { fft.forward(re.data(), im.data()); });
}
BENCHMARK(complex_forward)->RangeMultiplier(2)->Range(64, 2048)->Unit(benchmark::kMicrosecond);

const bool kRegistered = [] {
  const auto add = [](const WideRealFft* wide, const char* name, std::size_t least, std::size_t most) {
    return benchmark::RegisterBenchmark((std::string("real_forward/") + name).c_str(), real_forward, wide)
        ->RangeMultiplier(2)
        ->Range(static_cast<std::int64_t>(least), static_cast<std::int64_t>(most))
        ->Unit(benchmark::kMicrosecond);
  };
  add(nullptr, "plain", 128, WideRealFft::kMostPoints)->Arg(400)->Arg(1102);
  for (const WideRealFft* wide : kWideRealFfts) {
    if (runs_here(*wide)) add(wide, wide->name, wide->least_points, WideRealFft::kMostPoints);
  }
  return true;
}();

}  // namespace
