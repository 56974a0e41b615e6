// The stream ring against a bare copy and a public lock-free queue, one 10 ms block in and out. Argument: bytes of the
// block (stereo 16-bit and four channels of 24 bits at 48 kHz).

#include <benchmark/benchmark.h>
#include <time.h>

#include <boost/lockfree/spsc_queue.hpp>
#include <cstring>
#include <vector>

#include "relay/ring_buffer.h"

namespace {

using sonivo::RingBuffer;

class CoarseClock final : public sonivo::Clock {
 public:
  std::uint64_t tick_ms() override {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
  }
  void sleep_ms(std::uint32_t) override {}
};

std::size_t block_bytes(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

void RingWriteAndRead(benchmark::State& state) {
  CoarseClock clock;
  RingBuffer ring(clock);
  ring.Allocate(10 * block_bytes(state));
  std::vector<std::byte> in(block_bytes(state), std::byte{1});
  std::vector<std::byte> out(in.size());
  ring.Write(in.data(), in.size() / 2);  // so that blocks cross the end of the storage
  for (auto _ : state) {
    benchmark::DoNotOptimize(ring.Write(in.data(), in.size()));
    benchmark::DoNotOptimize(ring.Read(out.data(), out.size()));
    benchmark::ClobberMemory();
  }
}

void MemcpyInAndOut(benchmark::State& state) {
  std::vector<std::byte> in(block_bytes(state), std::byte{1});
  std::vector<std::byte> storage(10 * in.size());
  std::vector<std::byte> out(in.size());
  std::size_t at = 0;
  for (auto _ : state) {
    std::memcpy(storage.data() + at, in.data(), in.size());
    benchmark::ClobberMemory();
    std::memcpy(out.data(), storage.data() + at, out.size());
    benchmark::ClobberMemory();
    at = at + in.size() == storage.size() ? 0 : at + in.size();
  }
}

void LockFreeQueuePushAndPop(benchmark::State& state) {
  std::vector<std::byte> in(block_bytes(state), std::byte{1});
  std::vector<std::byte> out(in.size());
  boost::lockfree::spsc_queue<std::byte> queue(10 * in.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(queue.push(in.data(), in.size()));
    benchmark::DoNotOptimize(queue.pop(out.data(), out.size()));
    benchmark::ClobberMemory();
  }
}

BENCHMARK(RingWriteAndRead)->Arg(1920)->Arg(5760);
BENCHMARK(MemcpyInAndOut)->Arg(1920)->Arg(5760);
BENCHMARK(LockFreeQueuePushAndPop)->Arg(1920)->Arg(5760);

}  // namespace
