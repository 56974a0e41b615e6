// How long a request to the driver takes, there and back over its socket, as the service makes it, and how many it
// answers to several clients at once. The driver is a process of its own.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/control_requests.h"
#include "platform/linux/control_bus.h"
#include "support/driver_process.h"

namespace {

using namespace sonivo;

/// The driver in a folder of its own.
class RunningDriver {
 public:
  RunningDriver() : process_(path(), (home_ / "state").string()), bus_(path()) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (bus_.interfaces(control::kControlInterface).empty()) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("the driver doesn't listen");
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  ~RunningDriver() {
    process_.end(SIGTERM);
    std::error_code ignored;
    std::filesystem::remove_all(home_, ignored);
  }
  RunningDriver(const RunningDriver&) = delete;
  RunningDriver& operator=(const RunningDriver&) = delete;

  std::shared_ptr<Device> open(Completion completion) {
    Error why = error::kNone;
    auto device = bus_.open(path(), Sharing::exclusive, completion, why);
    if (!device) throw std::runtime_error("no driver");
    return device;
  }

 private:
  static std::filesystem::path make_home() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sonivo-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder");
    return pattern;
  }
  std::string path() const { return (home_ / "driver.sock").string(); }

  std::filesystem::path home_ = make_home();
  test::DriverProcess process_;
  linux::ControlBus bus_;
};

/// The one of the benchmark that runs, for all its threads.
std::optional<RunningDriver> running;

void start_driver(const benchmark::State&) { running.emplace(); }
void end_driver(const benchmark::State&) { running.reset(); }

void measure(benchmark::State& state, Completion completion, std::uint32_t code, std::size_t output_bytes) {
  const auto device = running->open(completion);
  std::vector<std::byte> output(output_bytes);
  std::uint32_t transferred = 0;
  for (auto _ : state) {
    if (device->control_now(code, {}, output, transferred) != error::kNone) state.SkipWithError("refused");
  }
  state.SetItemsProcessed(state.iterations());
}

/// One at a time, with pauses in which both sides go to sleep.
void BM_GetNumberAfterAPause(benchmark::State& state) {
  const auto device = running->open(Completion::synchronous);
  std::array<std::byte, 4> output{};
  std::uint32_t transferred = 0;
  for (auto _ : state) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const auto start = std::chrono::steady_clock::now();
    if (device->control_now(control::GetFunction, {}, output, transferred) != error::kNone) {
      state.SkipWithError("refused");
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
}
BENCHMARK(BM_GetNumberAfterAPause)->Setup(start_driver)->Teardown(end_driver)->UseManualTime()->Iterations(1000);

/// Sets another value each time.
void measure_setting(benchmark::State& state, std::uint32_t code) {
  const auto device = running->open(Completion::synchronous);
  std::array<std::byte, sizeof(std::uint32_t)> input{};
  std::uint32_t value = 0;
  std::uint32_t transferred = 0;
  for (auto _ : state) {
    value ^= 1;
    std::memcpy(input.data(), &value, sizeof value);
    if (device->control_now(code, input, {}, transferred) != error::kNone) state.SkipWithError("refused");
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_GetNumber(benchmark::State& state) { measure(state, Completion::synchronous, control::GetFunction, 4); }
BENCHMARK(BM_GetNumber)->Setup(start_driver)->Teardown(end_driver)->UseRealTime()->Threads(1)->Threads(4)->Threads(8);

void BM_GetText(benchmark::State& state) {
  measure(state, Completion::synchronous, control::GetCaptureEndpointId, control::kTextBytes);
}
BENCHMARK(BM_GetText)->Setup(start_driver)->Teardown(end_driver)->UseRealTime();

void BM_GetNumberOverlapped(benchmark::State& state) {
  measure(state, Completion::overlapped, control::GetKeyboardCancelMTG, 4);
}
BENCHMARK(BM_GetNumberOverlapped)->Setup(start_driver)->Teardown(end_driver)->UseRealTime();

/// A value that isn't kept.
void BM_SetNumber(benchmark::State& state) { measure_setting(state, control::SetHeadphone); }
BENCHMARK(BM_SetNumber)->Setup(start_driver)->Teardown(end_driver)->UseRealTime();

/// With what the disk takes.
void BM_SetKeptNumber(benchmark::State& state) { measure_setting(state, control::SetAutoExit); }
BENCHMARK(BM_SetKeptNumber)->Setup(start_driver)->Teardown(end_driver)->UseRealTime();

}  // namespace
