// Element-wise loops of the engine on arrays that fit the first-level cache (1024 values), the second-level cache
// (65536) and neither (2097152), beside Eigen's array expressions, a copy of the array and, where it is installed,
// oneDNN with one thread. "ratio" is our time over oneDNN's, "to_Eigen" over Eigen's, "copies" ours in copies of the
// array. With --avx2 all are capped to AVX2.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lib/kernels/kernels.h"
#include "nn/eigen_peer.h"
#include "nn/stopwatch.h"

#ifdef SONIVO_BENCH_ONEDNN
#include "nn/onednn_elements.h"
#endif

namespace meridane::bench {
namespace {

struct Arrays {
  explicit Arrays(std::size_t size) : count(size), x(noise()), a(noise()), b(noise()), y(size) {}

  std::vector<float> noise() const {
    std::vector<float> values(count);
    std::uint32_t state = 1;
    for (float& value : values) {
      state = state * 1664525u + 1013904223u;
      value = static_cast<float>(state >> 8) / 2097152.0f - 4.0f;
    }
    return values;
  }

  std::size_t count;
  std::vector<float> x, a, b, y;
};

#ifdef SONIVO_BENCH_ONEDNN
using MakePeer = OneDnnElements (*)(Arrays&);

template <dnnl::algorithm Algorithm, int Percent = 0>
OneDnnElements eltwise(Arrays& arrays) {
  return {Algorithm, Percent / 100.0f, arrays.x, arrays.y};
}
constexpr MakePeer kLogistic = eltwise<dnnl::algorithm::eltwise_logistic>;
constexpr MakePeer kTangent = eltwise<dnnl::algorithm::eltwise_tanh>;
constexpr MakePeer kSwish = eltwise<dnnl::algorithm::eltwise_swish, 100>;
constexpr MakePeer kRectifier = eltwise<dnnl::algorithm::eltwise_relu>;
constexpr MakePeer kLeaky = eltwise<dnnl::algorithm::eltwise_relu, 25>;
constexpr MakePeer kSoftmax = [](Arrays& arrays) { return OneDnnElements::softmax(arrays.x, arrays.y); };
constexpr MakePeer kLayerNorm = [](Arrays& arrays) {
  return OneDnnElements::layer_norm(arrays.x, arrays.a, arrays.b, arrays.y);
};
#else
using MakePeer = void*;
constexpr MakePeer kLogistic = nullptr, kTangent = nullptr, kSwish = nullptr, kRectifier = nullptr, kLeaky = nullptr,
                   kSoftmax = nullptr, kLayerNorm = nullptr;
#endif

template <class Ours, class Eigens>
void add(const char* name, Ours ours, Eigens eigens, [[maybe_unused]] MakePeer make_peer = nullptr) {
  benchmark::RegisterBenchmark(name,
                               [=](benchmark::State& state) {
                                 Arrays arrays(static_cast<std::size_t>(state.range(0)));
                                 std::vector<Work> works = {[&] { ours(arrays); }, [&] { eigens(arrays); },
                                                            [&] {
                                                              std::memcpy(arrays.y.data(), arrays.x.data(),
                                                                          arrays.count * sizeof(float));
                                                              benchmark::ClobberMemory();
                                                            }};
#ifdef SONIVO_BENCH_ONEDNN
                                 std::vector<OneDnnElements> peer;
                                 if (make_peer != nullptr) {
                                   peer.push_back(make_peer(arrays));
                                   works.emplace_back([&] { peer.front().run(); });
                                 }
#endif
                                 const std::vector<double> times = warm_times(works);
                                 for (auto _ : state) state.SetIterationTime(times[0] * 1e-6);
                                 state.counters["to_Eigen"] = times[0] / times[1];
                                 state.counters["copies"] = times[0] / times[2];
                                 if (times.size() > 3) state.counters["ratio"] = times[0] / times[3];
                               })
      ->Arg(1024)
      ->Arg(65536)
      ->Arg(2097152)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}

void add_all(const Kernels& k, const EigenPeer& e) {
  add(
      "logistic", [&k](Arrays& v) { k.logistic(v.x.data(), v.count, 1, 0, v.y.data()); },
      [&e](Arrays& v) { e.logistic(v.x.data(), v.count, v.y.data()); }, kLogistic);
  add(
      "hyperbolic_tangent", [&k](Arrays& v) { k.hyperbolic_tangent(v.x.data(), v.count, 1, 0, v.y.data()); },
      [&e](Arrays& v) { e.hyperbolic_tangent(v.x.data(), v.count, v.y.data()); }, kTangent);
  add(
      "swish", [&k](Arrays& v) { k.swish(v.x.data(), v.count, 1, 0, v.y.data()); },
      [&e](Arrays& v) { e.swish(v.x.data(), v.count, v.y.data()); }, kSwish);
  add(
      "gated", [&k](Arrays& v) { k.gated(v.x.data(), v.a.data(), v.count, 1, 0, v.y.data()); },
      [&e](Arrays& v) { e.gated(v.x.data(), v.a.data(), v.count, v.y.data()); });
  add(
      "rectifier", [&k](Arrays& v) { k.leaky_rectifier(v.x.data(), v.count, 0, v.y.data()); },
      [&e](Arrays& v) { e.rectifier(v.x.data(), v.count, 0, v.y.data()); }, kRectifier);
  add(
      "leaky_rectifier", [&k](Arrays& v) { k.leaky_rectifier(v.x.data(), v.count, 0.25f, v.y.data()); },
      [&e](Arrays& v) { e.rectifier(v.x.data(), v.count, 0.25f, v.y.data()); }, kLeaky);
  add(
      "softmax", [&k](Arrays& v) { k.softmax(v.x.data(), v.count, 1, v.y.data()); },
      [&e](Arrays& v) { e.softmax(v.x.data(), v.count, v.y.data()); }, kSoftmax);
  add(
      "normalise", [&k](Arrays& v) { k.normalise(v.x.data(), v.count, v.a.data(), v.b.data(), 1e-5f, v.y.data()); },
      [&e](Arrays& v) { e.normalise(v.x.data(), v.count, v.a.data(), v.b.data(), v.y.data()); }, kLayerNorm);
  add(
      "standardise",
      [&k](Arrays& v) { k.standardise(v.x.data(), v.count, v.a.data(), v.b.data(), v.a.data(), v.y.data()); },
      [&e](Arrays& v) { e.standardise(v.x.data(), v.count, v.a.data(), v.b.data(), v.a.data(), v.y.data()); });
  add(
      "add", [&k](Arrays& v) { k.add(v.x.data(), v.count, v.a.data(), v.y.data()); },
      [&e](Arrays& v) { e.add(v.x.data(), v.count, v.a.data(), v.y.data()); });
}

}  // namespace
}  // namespace meridane::bench

int main(int argc, char** argv) {
  using namespace meridane;
  if (!getenv("OMP_NUM_THREADS")) {  // read when oneDNN is loaded
    setenv("OMP_NUM_THREADS", "1", 1);
    execv("/proc/self/exe", argv);
  }
  const bool capped = argc > 1 && std::strcmp(argv[1], "--avx2") == 0;
  if (capped) {
#ifdef SONIVO_BENCH_ONEDNN
    dnnl::set_max_cpu_isa(dnnl::cpu_isa::avx2);
#endif
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
