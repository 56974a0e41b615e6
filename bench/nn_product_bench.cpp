// Products with constant weights, square, for the frames of a call: ours beside Eigen's general product and, where it
// is installed, oneDNN with one thread. All contenders of a line take turns in one process; "ratio" is our time over
// oneDNN's. With --avx2 all of them are capped to AVX2, with --vnni oneDNN to AVX-512 with VNNI:
// the tile registers that it takes otherwise are in no notebook. "cold" calls find nothing in the second-level cache.
// 8 bits: quantizing the frames is part of the time.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "lib/kernels/code_kernels.h"
#include "lib/kernels/kernels.h"
#include "lib/kernels/packed_weight.h"
#include "nn/eigen_peer.h"
#include "nn/stopwatch.h"

#ifdef SONIVO_BENCH_ONEDNN
#include "nn/onednn_peer.h"
#endif

namespace meridane::bench {
namespace {

struct Contenders {
  const Kernels* kernels = &best_kernels();
  const CodeKernels* codes = &best_code_kernels();
  const EigenPeer* eigen = runs_here(kAvx512Kernels) ? &kEigenAvx512 : &kEigenAvx2;
} contenders;

std::vector<float> noise(std::size_t count) {
  std::vector<float> values(count);
  std::uint32_t state = 1;
  for (float& value : values) {
    state = state * 1664525u + 1013904223u;
    value = static_cast<float>(state >> 8) / 8388608.0f - 1.0f;
  }
  return values;
}

PackedWeight packed(const std::vector<float>& w, std::size_t rows, std::size_t cols) {
  const std::size_t bytes = PackedWeight::block_size(rows, cols, *contenders.kernels) * sizeof(float);
  const std::shared_ptr<float> block(static_cast<float*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64)), std::free);
  std::copy(w.begin(), w.end(), block.get());
  return PackedWeight(block, rows, cols, *contenders.kernels);
}

void report(benchmark::State& state, const std::vector<double>& times, double operations) {
  for (auto _ : state) state.SetIterationTime(times[0] * 1e-6);
  state.counters["GOP/s"] = operations / times[0] * 1e-3;
#ifdef SONIVO_BENCH_ONEDNN
  state.counters["oneDNN_us"] = times[1];
  state.counters["ratio"] = times[0] / times[1];
#endif
}

void dense(benchmark::State& state, bool cold) {
  const auto size = static_cast<std::size_t>(state.range(0)), frames = static_cast<std::size_t>(state.range(1));
  std::vector<float> w = noise(size * size), bias = noise(size), x = noise(size * frames), y(size * frames);
  const PackedWeight ours = packed(w, size, size);
  std::vector<Work> works = {[&] { ours.multiply(x.data(), size, frames, bias.data(), y.data(), size); }};
#ifdef SONIVO_BENCH_ONEDNN
  OneDnnProduct peer(w, bias, x, y, state.range(1));
  works.emplace_back([&] { peer.multiply(); });
  state.SetLabel(peer.implementation());
#endif
  works.emplace_back(
      [&] { contenders.eigen->multiply(w.data(), size, size, x.data(), frames, bias.data(), y.data()); });
  const std::vector<double> times = cold ? cold_times(works) : warm_times(works);
  state.counters["Eigen_us"] = times.back();
  report(state, times, 2.0 * static_cast<double>(size * size * frames));
}

void bytes(benchmark::State& state, bool cold) {
  constexpr std::size_t kBlock = 60;  // frames that are quantized and multiplied at once
  const auto size = static_cast<std::size_t>(state.range(0)), frames = static_cast<std::size_t>(state.range(1));
  std::vector<std::int8_t> w(size * size);
  for (std::size_t i = 0; i < w.size(); ++i) w[i] = static_cast<std::int8_t>(i * 31 % 255);
  std::vector<std::uint8_t> unsigned_w(w.begin(), w.end()), codes(size * kBlock);
  std::vector<float> x = noise(size * frames);
  std::vector<std::int32_t> y(size * frames);
  const PackedCodes ours(unsigned_w.data(), size, size, *contenders.codes);
  std::vector<Work> works = {[&] {
    for (std::size_t first = 0; first < frames; first += kBlock) {
      const std::size_t count = std::min(kBlock, frames - first);
      for (std::size_t t = 0; t < count; ++t) {
        benchmark::DoNotOptimize(contenders.codes->quantize(&x[(first + t) * size], size, size, &codes[t * size]));
      }
      ours.multiply(codes.data(), count, &y[first * size]);
    }
  }};
#ifdef SONIVO_BENCH_ONEDNN
  OneDnnProduct peer(w, state.range(0), x, y, state.range(1));
  works.emplace_back([&] { peer.multiply(); });
  state.SetLabel(peer.implementation());
#endif
  report(state, cold ? cold_times(works) : warm_times(works), 2.0 * static_cast<double>(size * size * frames));
}

void settings(benchmark::internal::Benchmark* bench, const std::vector<long>& frames) {
  bench->ArgsProduct({{256, 512, 1024}, frames})->ArgNames({"size", "frames"})->Iterations(1)->UseManualTime();
  bench->Unit(benchmark::kMicrosecond);
}

}  // namespace
}  // namespace meridane::bench

int main(int argc, char** argv) {
  using namespace meridane::bench;
  if (!getenv("OMP_NUM_THREADS")) {  // read when oneDNN is loaded
    setenv("OMP_NUM_THREADS", "1", 1);
    execv("/proc/self/exe", argv);
  }
  const bool avx2 = argc > 1 && std::strcmp(argv[1], "--avx2") == 0;
  const bool vnni = argc > 1 && std::strcmp(argv[1], "--vnni") == 0;
  if (avx2) contenders = {&meridane::kAvx2Kernels, &meridane::kAvx2CodeKernels, &kEigenAvx2};
  if (avx2 || vnni) {
#ifdef SONIVO_BENCH_ONEDNN
    dnnl::set_max_cpu_isa(avx2 ? dnnl::cpu_isa::avx2 : dnnl::cpu_isa::avx512_core_vnni);
#endif
    argv[1] = argv[0];
    --argc;
    ++argv;
  }
  settings(benchmark::RegisterBenchmark("dense", dense, false), {1, 5, 50, 800});
  settings(benchmark::RegisterBenchmark("dense_cold", dense, true), {1, 5, 50});
  settings(benchmark::RegisterBenchmark("bytes", bytes, false), {1, 5, 50, 800});
  settings(benchmark::RegisterBenchmark("bytes_cold", bytes, true), {1, 5, 50});
  benchmark::AddCustomContext("float kernels", contenders.kernels->name);
  benchmark::AddCustomContext("8-bit kernels", contenders.codes->name);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
