#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>

#ifdef SONIVO_BENCH_FFTW
#include <fftw3.h>
#endif

// A transform of ours, and where FFTW is installed, FFTW's time for the same work beside it (out of place and measured
// plans, its fastest form) and ours over FFTW's as "ratio". FFTW chooses its own instruction set; the packaged one
// knows SSE2 and AVX.

namespace sonivo::bench {

enum class Transform { real, complex };  ///< N real points to N / 2 + 1 bins; N complex points to N bins

#ifdef SONIVO_BENCH_FFTW
/// Best of several rounds, in microseconds per call: the same for ours and the peer's.
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

/// Of zeros.
inline double fftw_time(Transform transform, std::size_t points) {
  fftwf_complex* const x = fftwf_alloc_complex(points);
  fftwf_complex* const X = fftwf_alloc_complex(points);
  const int count = static_cast<int>(points);
  const fftwf_plan plan = transform == Transform::complex ? fftwf_plan_dft_1d(count, x, X, FFTW_FORWARD, FFTW_MEASURE)
                                                          : fftwf_plan_dft_r2c_1d(count, x[0], X, FFTW_MEASURE);
  std::fill_n(x[0], 2 * points, 0.0f);
  const double time = best_time([plan] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
  fftwf_free(x);
  fftwf_free(X);
  return time;
}
#endif

/// `work` does the transform once. Its points are zeros if it is in place: others would grow without bound.
template <class Work>
void race(benchmark::State& state, [[maybe_unused]] Transform transform, [[maybe_unused]] std::size_t points,
          Work work) {
  for (auto _ : state) {
    work();
    benchmark::ClobberMemory();
  }
#ifdef SONIVO_BENCH_FFTW
  const double theirs = fftw_time(transform, points);
  state.counters["fftw_us"] = theirs;
  state.counters["ratio"] = best_time(work) / theirs;
#endif
}

}  // namespace sonivo::bench
