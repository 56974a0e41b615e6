#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>

#include "nn/machine.h"

#ifdef SONIVO_BENCH_TORCH
#include "nn/torch_peer.h"
#endif

namespace meridane::bench {

/// A program of benchmarks in which all contenders have one thread and the same instructions; `add` registers what
/// runs.
template <class Add>
int run_program(int argc, char** argv, Add add) {
  start_with_one_thread(argc, argv);
  if (!cap_holds()) {
    std::fputs("error: this build doesn't let --avx2 choose our kernels\n", stderr);
    return 1;
  }
#ifdef SONIVO_BENCH_TORCH
  prepare_torch();
#endif
  add();
  benchmark::AddCustomContext("instructions", capped_to_avx2() ? "AVX2" : "best");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace meridane::bench
