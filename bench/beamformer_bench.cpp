// Two beams of two microphones, a frame of 192 samples, for each instruction set that runs here.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "classic/fixed_beamformer.h"

namespace {

using namespace sonivo::classic;

void beams(benchmark::State& state, const Kernels& kernels) {
  auto param = std::make_unique<BeamFormingKeyCancelParam>();
  for (auto& beam : param->filter) {
    for (auto& microphone : beam) {
      for (auto& partition : microphone) {
        for (ComplexFloat& bin : partition) bin = {0.25f, -0.5f};
      }
    }
  }
  FixedBeamformer beamformer(*param, kernels);
  std::vector<float> a0(kHop, 1000.0f), a1(kHop, -500.0f), beam0(kHop), beam1(kHop);
  for (auto _ : state) {
    beamformer.process(a0, a1, beam0, beam1);
    benchmark::ClobberMemory();
  }
}

const bool kRegistered = [] {
  for (const Kernels* kernels : kAllKernels) {
    if (!runs_here(*kernels)) continue;
    const std::string name = std::string("FixedBeamformer/") + kernels->name;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
      beams(state, *kernels);
    })->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
