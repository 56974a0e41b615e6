// Element-wise loops of the engine on arrays that fit the first-level cache (1024 values), beside Eigen's array
// expressions and a copy of the array. "ratio" is our time over Eigen's, "copies" ours in copies of the array. With
// --avx2 ours and Eigen are capped to AVX2.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "lib/kernels/kernels.h"
#include "nn/eigen_peer.h"
#include "nn/stopwatch.h"

namespace meridane::bench {
namespace {

constexpr std::size_t kCount = 1024;

std::vector<float> noise() {
  std::vector<float> values(kCount);
  std::uint32_t state = 1;
  for (float& value : values) {
    state = state * 1664525u + 1013904223u;
    value = static_cast<float>(state >> 8) / 2097152.0f - 4.0f;
  }
  return values;
}

template <class Ours, class Peer>
void add(const char* name, Ours ours, Peer peer) {
  benchmark::RegisterBenchmark(name,
                               [=](benchmark::State& state) {
                                 const std::vector<float> x = noise(), a = noise(), b = noise();
                                 std::vector<float> y(kCount);
                                 const std::vector<double> times =
                                     warm_times({[&] { ours(x.data(), a.data(), b.data(), y.data()); },
                                                 [&] { peer(x.data(), a.data(), b.data(), y.data()); },
                                                 [&] {
                                                   std::memcpy(y.data(), x.data(), kCount * sizeof(float));
                                                   benchmark::ClobberMemory();
                                                 }});
                                 for (auto _ : state) state.SetIterationTime(times[0] * 1e-6);
                                 state.counters["Eigen_ns"] = times[1] * 1e3;
                                 state.counters["ratio"] = times[0] / times[1];
                                 state.counters["copies"] = times[0] / times[2];
                               })
      ->Iterations(1)
      ->UseManualTime();
}

void add_all(const Kernels& k, const EigenPeer& e) {
  using In = const float*;
  add(
      "logistic", [&k](In x, In, In, float* y) { k.logistic(x, kCount, 1, 0, y); },
      [&e](In x, In, In, float* y) { e.logistic(x, kCount, y); });
  add(
      "hyperbolic_tangent", [&k](In x, In, In, float* y) { k.hyperbolic_tangent(x, kCount, 1, 0, y); },
      [&e](In x, In, In, float* y) { e.hyperbolic_tangent(x, kCount, y); });
  add(
      "swish", [&k](In x, In, In, float* y) { k.swish(x, kCount, 1, 0, y); },
      [&e](In x, In, In, float* y) { e.swish(x, kCount, y); });
  add(
      "rectifier", [&k](In x, In, In, float* y) { k.leaky_rectifier(x, kCount, 0, y); },
      [&e](In x, In, In, float* y) { e.rectifier(x, kCount, y); });
  add(
      "softmax", [&k](In x, In, In, float* y) { k.softmax(x, kCount, 1, y); },
      [&e](In x, In, In, float* y) { e.softmax(x, kCount, y); });
  add(
      "normalise", [&k](In x, In a, In b, float* y) { k.normalise(x, kCount, a, b, 1e-5f, y); },
      [&e](In x, In a, In b, float* y) { e.normalise(x, kCount, a, b, y); });
  add(
      "scale_and_shift", [&k](In x, In a, In b, float* y) { k.scale_and_shift(x, kCount, a, b, y); },
      [&e](In x, In a, In b, float* y) { e.scale_and_shift(x, kCount, a, b, y); });
}

}  // namespace
}  // namespace meridane::bench

int main(int argc, char** argv) {
  using namespace meridane;
  const bool capped = argc > 1 && std::strcmp(argv[1], "--avx2") == 0;
  if (capped) {
    argv[1] = argv[0];
    --argc;
    ++argv;
  }
  const Kernels& kernels = capped ? kAvx2Kernels : best_kernels();
  bench::add_all(kernels, &kernels == &kAvx512Kernels ? bench::kEigenAvx512 : bench::kEigenAvx2);
  benchmark::AddCustomContext("kernels", kernels.name);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
