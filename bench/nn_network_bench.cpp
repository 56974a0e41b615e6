// Networks as users train them, and a Conformer block, call by call with their state, beside oneDNN and libtorch where
// they are installed, all with one thread. With --avx2 all of them are capped to AVX2. "ratio" is our time over
// oneDNN's, "to_torch" that over libtorch's; "real_time" our time over that of the sound of a call; "peak" our
// multiply-adds per second as a share of what the core does at most, measured in the same run. "cold" calls find
// nothing in the second-level cache: the normal case of a process that runs one call every 50 ms.
// libtorch is at its best with an OpenBLAS as the machine's BLAS.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "nn/network_shapes.h"
#include "nn/networks.h"
#include "nn/program.h"
#include "nn/stopwatch.h"

#ifdef SONIVO_BENCH_ONEDNN
#include "nn/onednn_networks.h"
#endif

namespace meridane::bench {
namespace {

/// The contenders for one network; those that aren't installed are empty.
struct Race {
  Work ours, onednn, torch;
  double seconds;        ///< of sound in a call
  double multiply_adds;  ///< of a call
};

void run(benchmark::State& state, Race (*race_of)(), bool cold) {
  const Race race = race_of();
  std::vector<Work> works;
  for (const Work& work : {race.ours, race.onednn, race.torch}) {
    if (work) works.push_back(work);
  }
  for (const Work& work : works) {
    for (int call = 0; call < 40; ++call) work();  // until all that is remembered is there
  }
  const std::vector<double> times = cold ? cold_times(works) : warm_times(works);
  for (auto _ : state) state.SetIterationTime(times[0] * 1e-6);
  state.counters["real_time"] = times[0] * 1e-6 / race.seconds;
  state.counters["peak"] = race.multiply_adds / times[0] / peak_multiply_adds();
  std::size_t next = 1;
  const auto compare = [&](const Work& work, const char* time, const char* ratio) {
    if (!work) return;
    state.counters[time] = times[next];
    state.counters[ratio] = times[0] / times[next++];
  };
  compare(race.onednn, "oneDNN_us", "ratio");
  compare(race.torch, "torch_us", "to_torch");
}

Work stream(const std::string& file, long rows, long frames) {
  return [net = std::make_shared<NetworkStream>(file, rows, frames)] { net->run(); };
}

#ifdef SONIVO_BENCH_ONEDNN
Work shared(std::unique_ptr<OneDnnNetwork> network) {
  return [net = std::shared_ptr<OneDnnNetwork>(std::move(network))] { net->run(); };
}
#endif

Race enhancement() {
  using Shape = EnhancementShape;
  Race race{.ours = stream(enhancement_network(), 1, Shape::frames * Shape::hop),
            .onednn = {},
            .torch = {},
            .seconds = Shape::seconds,
            .multiply_adds = Shape::multiply_adds()};
#ifdef SONIVO_BENCH_ONEDNN
  race.onednn = shared(onednn_enhancement());
#endif
#ifdef SONIVO_BENCH_TORCH
  race.torch = torch_enhancement();
#endif
  return race;
}

template <long Blocks>
Race conformer() {
  using Shape = ConformerShape;
  Race race{.ours = stream(conformer_network(Blocks), Shape::rows, Shape::frames),
            .onednn = {},
            .torch = {},
            .seconds = Shape::seconds,
            .multiply_adds = Blocks * Shape::multiply_adds()};
#ifdef SONIVO_BENCH_ONEDNN
  race.onednn = shared(onednn_conformer(Blocks));
#endif
#ifdef SONIVO_BENCH_TORCH
  race.torch = torch_conformer(Blocks);
#endif
  return race;
}

Race mask() {
  using Shape = MaskShape;
  Race race{.ours = stream(mask_network(), Shape::rows, Shape::frames),
            .onednn = {},
            .torch = {},
            .seconds = Shape::seconds,
            .multiply_adds = Shape::multiply_adds()};
#ifdef SONIVO_BENCH_ONEDNN
  race.onednn = shared(onednn_mask());
#endif
#ifdef SONIVO_BENCH_TORCH
  race.torch = torch_mask();
#endif
  return race;
}

void add(const std::string& name, Race (*race)()) {
  for (const bool cold : {false, true}) {
    benchmark::RegisterBenchmark((cold ? name + "_cold" : name).c_str(), run, race, cold)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace
}  // namespace meridane::bench

int main(int argc, char** argv) {
  using namespace meridane::bench;
  return run_program(argc, argv, [] {
    add("enhancement", enhancement);
    add("conformer_block", conformer<1>);
    add("conformer_encoder", conformer<6>);
    add("lstm_mask", mask);
    benchmark::AddCustomContext("multiply-adds per us at most", std::to_string(peak_multiply_adds()));
  });
}
