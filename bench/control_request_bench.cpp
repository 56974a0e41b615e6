// How long a request to the driver takes: there and back, over its socket, as the service makes it.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <array>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "driver/listener.h"
#include "driver/server.h"
#include "platform/control_requests.h"
#include "platform/linux/control_bus.h"

namespace {

using namespace sonivo;

/// A driver in a folder of its own, on a thread.
class RunningDriver {
 public:
  RunningDriver() : thread_([this] { server_.run(); }) {}
  ~RunningDriver() {
    server_.stop();
    thread_.join();
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
  driver::Disk disk_;
  driver::StateFolder folder_{home_ / "state", disk_};
  driver::Settings settings_{folder_};
  driver::EffectProperties properties_{folder_};
  driver::ListenerPath listener_{path()};
  driver::Server server_{listener_.take(), settings_, properties_};
  linux::ControlBus bus_{path()};
  std::thread thread_;
};

void measure(benchmark::State& state, Completion completion, std::uint32_t code, std::span<const std::byte> input,
             std::size_t output_bytes) {
  RunningDriver driver;
  const auto device = driver.open(completion);
  std::vector<std::byte> output(output_bytes);
  std::uint32_t transferred = 0;
  for (auto _ : state) {
    if (device->control_now(code, input, output, transferred) != error::kNone) state.SkipWithError("refused");
  }
}

void BM_GetNumber(benchmark::State& state) { measure(state, Completion::synchronous, control::GetFunction, {}, 4); }
BENCHMARK(BM_GetNumber)->UseRealTime();

void BM_GetText(benchmark::State& state) {
  measure(state, Completion::synchronous, control::GetCaptureEndpointId, {}, control::kTextBytes);
}
BENCHMARK(BM_GetText)->UseRealTime();

void BM_GetNumberOverlapped(benchmark::State& state) {
  measure(state, Completion::overlapped, control::GetKeyboardCancelMTG, {}, 4);
}
BENCHMARK(BM_GetNumberOverlapped)->UseRealTime();

/// Without what the disk takes: a value that isn't kept.
void BM_SetNumber(benchmark::State& state) {
  const std::array<std::byte, 4> value{};
  measure(state, Completion::synchronous, control::SetHeadphone, value, 0);
}
BENCHMARK(BM_SetNumber)->UseRealTime();

}  // namespace
