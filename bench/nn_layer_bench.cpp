// Streaming layers, each with its state, for the frames of a call: LSTM, LSTM in 8 bits, and causal convolutions along
// time, plain and depthwise, beside oneDNN with one thread where it is installed, all with the best that runs here.
// "ratio" is our time over oneDNN's (of the float layer for 8 bits, too), "to_float" that of the 8-bit layer over our
// float one. "cold" calls find nothing in the second-level cache.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "meridane/framescore/nnlayer/builders.h"
#include "nn/stopwatch.h"

#ifdef SONIVO_BENCH_ONEDNN
#include "nn/onednn_layers.h"
#endif

namespace meridane::bench {
namespace {

template <class Number>
std::string bytes_of(Number value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string matrix(std::int64_t rows, std::int64_t cols) {
  std::string bytes = bytes_of(rows) + bytes_of(cols);
  for (std::int64_t i = 0; i < rows * cols; ++i) bytes += bytes_of(static_cast<float>(i % 13) / 128.0f - 0.05f);
  return bytes;
}

std::string lstm_record(long size) {
  return "LSTM" + matrix(4 * size, size) + matrix(4 * size, 1) + matrix(4 * size, size);
}

std::string taps_record(long channels, int taps, bool depthwise) {
  std::string record = "TDNN";
  for (const int number : {depthwise ? 1 : 0, 1, 0, 1, 1, taps}) record += bytes_of<std::int32_t>(number);
  return record + matrix(taps * channels, depthwise ? 1 : channels) + matrix(channels, 1);
}

/// A layer in a stream of calls with the same frames, each of which writes over the result of the one before.
class Stream {
 public:
  template <class Table>
  static Stream of(Table, const std::string& type, const std::string& record, long rows, long frames) {
    ensure_layer_tables();
    std::istringstream stream(record);
    return Stream(Table::build(type, "layer", nullptr, stream), rows, frames);
  }

  void run() {
    inputs_.clear();
    inputs_.add(x_);
    if (y_ != nullptr) inputs_.set_spare(std::move(y_));
    y_ = layer_->forward(inputs_, state_);
  }

 private:
  Stream(std::shared_ptr<NNLayer> layer, long rows, long frames)
      : layer_(std::move(layer)),
        state_(layer_->create_state()),
        x_(std::make_shared<Minibatch>(Matrix(Matrix::Random(rows, frames)))) {}

  std::shared_ptr<NNLayer> layer_;
  std::shared_ptr<NNLayerState> state_;
  MinibatchPtr x_, y_;
  LayerInputs inputs_;
};

/// Ours is the first, those from `peers` on are oneDNN's, of which the fastest counts.
void report(benchmark::State& state, const std::vector<double>& times, std::size_t peers = 1) {
  for (auto _ : state) state.SetIterationTime(times[0] * 1e-6);
  if (times.size() == peers) return;
  state.counters["ratio"] =
      times[0] / *std::min_element(times.begin() + static_cast<std::ptrdiff_t>(peers), times.end());
}

void lstm(benchmark::State& state, bool cold) {
  const long size = state.range(0), frames = state.range(1);
  Stream ours = Stream::of(NNLayerBuilder(), "LSTM", lstm_record(size), size, frames);
  std::vector<Work> works = {[&] { ours.run(); }};
#ifdef SONIVO_BENCH_ONEDNN
  OneDnnLayer plain = OneDnnLayer::lstm(size, size, frames, true),
              packed = OneDnnLayer::lstm(size, size, frames, false);
  works.emplace_back([&] { plain.run(); });
  works.emplace_back([&] { packed.run(); });
#endif
  report(state, cold ? cold_times(works) : warm_times(works));
}

void lstm_bytes(benchmark::State& state) {
  const long size = state.range(0), frames = state.range(1);
  Stream ours = Stream::of(QuantizedNNLayerBuilder(), "LSTM", lstm_record(size), size, frames);
  Stream floats = Stream::of(NNLayerBuilder(), "LSTM", lstm_record(size), size, frames);
  std::vector<Work> works = {[&] { ours.run(); }, [&] { floats.run(); }};
#ifdef SONIVO_BENCH_ONEDNN
  OneDnnLayer plain = OneDnnLayer::lstm(size, size, frames, true),
              packed = OneDnnLayer::lstm(size, size, frames, false);
  works.emplace_back([&] { plain.run(); });
  works.emplace_back([&] { packed.run(); });
#endif
  const std::vector<double> times = warm_times(works);
  report(state, times, 2);
  state.counters["to_float"] = times[0] / times[1];
}

void convolution(benchmark::State& state, bool depthwise) {
  const long channels = state.range(0), frames = state.range(1);
  constexpr int kTaps = 3;
  Stream ours = Stream::of(NNLayerBuilder(), "TDNN", taps_record(channels, kTaps, depthwise), channels, frames);
  std::vector<Work> works = {[&] { ours.run(); }};
#ifdef SONIVO_BENCH_ONEDNN
  OneDnnLayer peer = OneDnnLayer::convolution(channels, kTaps, frames, depthwise);
  works.emplace_back([&] { peer.run(); });
#endif
  report(state, warm_times(works));
}

void settings(benchmark::internal::Benchmark* bench, const std::vector<long>& sizes) {
  bench->ArgsProduct({sizes, {5, 50}})->ArgNames({"size", "frames"})->Iterations(1)->UseManualTime();
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
  settings(benchmark::RegisterBenchmark("lstm", lstm, false), {256, 512});
  settings(benchmark::RegisterBenchmark("lstm_cold", lstm, true), {256, 512});
  settings(benchmark::RegisterBenchmark("lstm_bytes", lstm_bytes), {256, 512});
  settings(benchmark::RegisterBenchmark("convolution", convolution, false), {256});
  settings(benchmark::RegisterBenchmark("depthwise", convolution, true), {256, 512});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
