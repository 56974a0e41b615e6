// The rate converters and the FIFOs around them. One iteration converts a second of audio, in frames of 10 ms. Where
// libsoxr is installed, each converter has libsoxr's time for the same work beside it (medium quality, float in and
// out, one thread, the same frames) and ours over its as "ratio".

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "enhance/fifo_input.h"
#include "enhance/fifo_output.h"
#include "enhance/rate_converter.h"
#include "enhance/section_pair.h"

#ifdef SONIVO_BENCH_SOXR
#include <soxr.h>
#endif

namespace {

using namespace sonivo;
using Clock = std::chrono::steady_clock;

std::vector<float> noise(std::size_t count, float peak) {
  std::vector<float> samples(count);
  unsigned state = 1;
  for (float& sample : samples) {
    state = state * 1664525u + 1013904223u;
    sample = peak * (static_cast<float>(state >> 16) / 32768.0f - 1.0f);
  }
  return samples;
}

double us_since(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// Best of several rounds, in microseconds per call: the same for ours and the peer's.
template <class Work>
double best_time(Work work) {
  double best = 1e9;
  for (int round = 0; round < 40; ++round) {
    const auto start = Clock::now();
    for (int i = 0; i < 10; ++i) {
      work();
      benchmark::ClobberMemory();
    }
    best = std::min(best, us_since(start) / 10);
  }
  return best;
}

constexpr std::size_t kFrames = 100;  // of a second

#ifdef SONIVO_BENCH_SOXR
double peer_second(const RateKernel& kernel, const std::vector<float>& in) {
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_MQ, 0);
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  const soxr_t peer = soxr_create(static_cast<double>(kernel.in_frame), static_cast<double>(kernel.out_frame), 1,
                                  &error, &io, &quality, &runtime);
  if (error != nullptr) return 0;
  std::vector<float> out(2 * kernel.out_frame);
  const double time = best_time([&] {
    for (std::size_t f = 0; f < kFrames; ++f) {
      std::size_t done = 0;
      soxr_process(peer, in.data() + f * kernel.in_frame, kernel.in_frame, nullptr, out.data(), out.size(), &done);
    }
  });
  soxr_delete(peer);
  return time;
}
#endif

void convert_a_second(benchmark::State& state, const RateKernel& (*kernel)(), const RateProducts& products) {
  RateConverter converter(kernel(), products);
  const std::vector<float> in = noise(kFrames * converter.in_frame(), 0.5f);
  std::vector<float> out(converter.out_frame());
  const auto second = [&] {
    for (std::size_t f = 0; f < kFrames; ++f) converter.process(in.data() + f * converter.in_frame(), out.data());
  };
  for (auto _ : state) {
    second();
    benchmark::ClobberMemory();
  }
#ifdef SONIVO_BENCH_SOXR
  const double theirs = peer_second(kernel(), in);
  state.counters["soxr_us"] = theirs;
  state.counters["ratio"] = best_time(second) / theirs;
#endif
}

const bool kRegistered = [] {
  for (const RateProducts* products : kAllRateProducts) {
    if (!runs_here(*products)) continue;
    const auto add = [products](const std::string& name, const RateKernel& (*kernel)()) {
      benchmark::RegisterBenchmark((name + "/" + products->name).c_str(), convert_a_second, kernel, *products)
          ->Unit(benchmark::kMicrosecond);
    };
    add("48000To16000", kernel_48000_to_16000);
    add("44100To16000", kernel_44100_to_16000);
    add("16000To48000", kernel_16000_to_48000);
    add("16000To44100", kernel_16000_to_44100);
  }
  return true;
}();

void HighPassASecond(benchmark::State& state) {
  HighPass filter;
  const std::vector<float> source = noise(160, 0.5f);
  std::vector<float> signal(160);
  for (auto _ : state) {
    for (std::size_t f = 0; f < kFrames; ++f) {
      signal = source;
      filter.process(signal);
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(HighPassASecond)->Unit(benchmark::kMicrosecond);

/// Chunks of 50 ms through both FIFOs, on one thread.
void FifosASecond(benchmark::State& state) {
  FifoInput in;
  FifoOutput out;
  in.BuffInit(3360, 48000, 5);
  out.BuffInit(3360, 2400, 48000);
  std::vector<float> block = noise(480, 0.5f);
  std::vector<short> chunk;
  for (auto _ : state) {
    for (int c = 0; c < 20; ++c) {
      for (int b = 0; b < 5; ++b) {
        in.PushData(block.data(), 480);
        out.PopData(block.data(), 480);
      }
      chunk.clear();
      in.data(chunk, 800, false);
      out.PushData(chunk.data(), 800);
    }
  }
}
BENCHMARK(FifosASecond)->Unit(benchmark::kMicrosecond);

/// What a new FIFO costs: storage, the kernels being there.
void OpenBoth(benchmark::State& state) {
  for (auto _ : state) {
    FifoInput in;
    FifoOutput out;
    in.BuffInit(3360, 48000, 5);
    out.BuffInit(3360, 2400, 48000);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(OpenBoth)->Unit(benchmark::kMicrosecond);

struct Waits {
  std::vector<double> us;

  void tell(benchmark::State& state, const std::string& name) {
    std::sort(us.begin(), us.end());
    state.counters[name + "_median_us"] = us[us.size() / 2];
    state.counters[name + "_99.9%_us"] = us[us.size() * 999 / 1000];
    state.counters[name + "_worst_us"] = us.back();
  }
};

/// An audio thread that pushes and pops without a pause while the model thread converts without one: how long a push
/// and a pop take, locks and all. An interrupted thread counts too; the machine's share in the worst case is what an
/// idle loop sees ("machine").
void WaitsUnderLoad(benchmark::State& state) {
  for (auto _ : state) {
    FifoInput in;
    FifoOutput out;
    in.BuffInit(3360, 48000, 5);
    out.BuffInit(3360, 2400, 48000);
    in.Start();
    std::thread model([&] {
      std::vector<short> chunk;
      chunk.reserve(800);
      for (;;) {
        chunk.clear();
        in.data(chunk, 800, false);
        if (in.end()) break;
        out.PushData(chunk.data(), 800);
      }
    });
    constexpr int kRounds = 100000;
    Waits push, pop, machine;
    for (Waits* waits : {&push, &pop, &machine}) waits->us.reserve(kRounds);
    std::vector<float> block(480);
    for (int round = 0; round < kRounds; ++round) {
      auto start = Clock::now();
      in.PushData(block.data(), 480);
      push.us.push_back(us_since(start));
      start = Clock::now();
      out.PopData(block.data(), 480);
      pop.us.push_back(us_since(start));
      start = Clock::now();
      for (int i = 0; i < 400; ++i) benchmark::DoNotOptimize(i);
      machine.us.push_back(us_since(start));
    }
    in.End();
    model.join();
    push.tell(state, "push");
    pop.tell(state, "pop");
    machine.tell(state, "machine");
  }
}
BENCHMARK(WaitsUnderLoad)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

/// From the push that completes a chunk to the answer of the sleeping reader, conversion of the chunk and all.
void WakeUp(benchmark::State& state) {
  for (auto _ : state) {
    constexpr int kRounds = 200;
    FifoInput fifo;
    fifo.BuffInit(3360, 48000, 5);
    fifo.Start();
    std::vector<Clock::time_point> answered(kRounds);
    std::atomic<int> asked = 0;
    std::thread model([&] {
      std::vector<short> chunk;
      chunk.reserve(800);
      for (Clock::time_point& time : answered) {
        chunk.clear();
        ++asked;
        fifo.data(chunk, 800, false);
        time = Clock::now();
      }
    });
    const std::vector<float> block(2400);
    std::vector<Clock::time_point> pushed;
    Waits push;
    for (int round = 0; round < kRounds; ++round) {
      while (asked != round + 1) std::this_thread::yield();
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      pushed.push_back(Clock::now());
      fifo.PushData(block.data(), 2400);
      push.us.push_back(us_since(pushed.back()));
    }
    model.join();
    Waits wake;
    for (std::size_t i = 0; i < pushed.size(); ++i) {
      wake.us.push_back(std::chrono::duration<double, std::micro>(answered[i] - pushed[i]).count());
    }
    wake.tell(state, "wake");
    push.tell(state, "waking_push");
  }
}
BENCHMARK(WakeUp)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
