// PCM to float, crossfade and back, for a 10 ms block of two channels at 48 kHz. Argument: bits of a sample.

#include <benchmark/benchmark.h>

#include <vector>

#include "relay/fade.h"
#include "relay/sample_convert.h"

namespace {

constexpr std::size_t kFrames = 480;
constexpr std::size_t kChannels = 2;
constexpr std::size_t kSamples = kFrames * kChannels;

void PcmToFloat(benchmark::State& state) {
  const auto bits = static_cast<std::uint16_t>(state.range(0));
  std::vector<std::byte> pcm(kSamples * bits / 8, std::byte{3});
  std::vector<float> samples(kSamples);
  for (auto _ : state) {
    sonivo::pcm_to_float(bits, pcm.data(), samples.data(), kSamples);
    benchmark::ClobberMemory();
  }
}

void FloatToPcm(benchmark::State& state) {
  const auto bits = static_cast<std::uint16_t>(state.range(0));
  std::vector<std::byte> pcm(kSamples * bits / 8);
  const std::vector<float> source(kSamples, 0.25f);
  std::vector<float> samples(kSamples);
  for (auto _ : state) {
    samples = source;  // scaled in place
    sonivo::float_to_pcm(bits, samples.data(), pcm.data(), kSamples);
    benchmark::ClobberMemory();
  }
}

void Crossfade(benchmark::State& state) {
  std::vector<float> wet(kSamples, 0.25f);
  const std::vector<float> dry(kSamples, 0.5f);
  float sel = 1.0f;
  float target = 0.0f;
  for (auto _ : state) {
    sonivo::crossfade(wet.data(), dry.data(), kFrames, kChannels, target, sel);
    target = 1.0f - target;
    benchmark::ClobberMemory();
  }
}

BENCHMARK(PcmToFloat)->Arg(16)->Arg(24);
BENCHMARK(FloatToPcm)->Arg(16)->Arg(24);
BENCHMARK(Crossfade);

}  // namespace
