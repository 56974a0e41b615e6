// Streaming layers, each with its state, for the frames of a call: LSTM, LSTM in 8 bits, and causal convolutions along
// time, plain and depthwise, beside oneDNN and libtorch with one thread where they are installed, all with the best
// that runs here, or with --avx2 capped to AVX2. "ratio" is our time over oneDNN's (of the float layer for 8 bits,
// too), "to_torch" that over libtorch's, "to_float" that of the 8-bit layer over our float one. "cold" calls find
// nothing in the second-level cache.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "meridane/framescore/nnlayer/builders.h"
#include "nn/program.h"
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

/// What runs in turns. Ours are the first; of oneDNN's, the fastest counts.
struct Contenders {
  std::vector<Work> ours, onednn, torch;

  std::vector<double> race(benchmark::State& state, bool cold) const {
    std::vector<Work> works;
    for (const auto* side : {&ours, &onednn, &torch}) works.insert(works.end(), side->begin(), side->end());
    const std::vector<double> times = cold ? cold_times(works) : warm_times(works);
    for (auto _ : state) state.SetIterationTime(times[0] * 1e-6);
    const auto peers = times.begin() + static_cast<std::ptrdiff_t>(ours.size());
    const auto others = peers + static_cast<std::ptrdiff_t>(onednn.size());
    if (!onednn.empty()) state.counters["ratio"] = times[0] / *std::min_element(peers, others);
    if (!torch.empty()) state.counters["to_torch"] = times[0] / *others;
    return times;
  }
};

/// The float layers of the peers.
Contenders lstm_peers([[maybe_unused]] long size, [[maybe_unused]] long frames) {
  Contenders contenders;
#ifdef SONIVO_BENCH_ONEDNN
  for (const bool plain : {true, false}) {
    const auto peer = std::make_shared<OneDnnLayer>(OneDnnLayer::lstm(size, size, frames, plain));
    contenders.onednn.emplace_back([peer] { peer->run(); });
  }
#endif
#ifdef SONIVO_BENCH_TORCH
  contenders.torch = {torch_lstm(size, frames)};
#endif
  return contenders;
}

void lstm(benchmark::State& state, bool cold) {
  const long size = state.range(0), frames = state.range(1);
  Stream ours = Stream::of(NNLayerBuilder(), "LSTM", lstm_record(size), size, frames);
  Contenders contenders = lstm_peers(size, frames);
  contenders.ours = {[&] { ours.run(); }};
  contenders.race(state, cold);
}

void lstm_bytes(benchmark::State& state, bool cold) {
  const long size = state.range(0), frames = state.range(1);
  Stream ours = Stream::of(QuantizedNNLayerBuilder(), "LSTM", lstm_record(size), size, frames);
  Stream floats = Stream::of(NNLayerBuilder(), "LSTM", lstm_record(size), size, frames);
  Contenders contenders = lstm_peers(size, frames);
  contenders.ours = {[&] { ours.run(); }, [&] { floats.run(); }};
  const std::vector<double> times = contenders.race(state, cold);
  state.counters["to_float"] = times[0] / times[1];
}

void convolution(benchmark::State& state, bool depthwise, bool cold) {
  const long channels = state.range(0), frames = state.range(1);
  constexpr int kTaps = 3;
  Stream ours = Stream::of(NNLayerBuilder(), "TDNN", taps_record(channels, kTaps, depthwise), channels, frames);
  Contenders contenders{.ours = {[&] { ours.run(); }}, .onednn = {}, .torch = {}};
#ifdef SONIVO_BENCH_ONEDNN
  OneDnnLayer peer = OneDnnLayer::convolution(channels, kTaps, frames, depthwise);
  contenders.onednn = {[&] { peer.run(); }};
#endif
#ifdef SONIVO_BENCH_TORCH
  contenders.torch = {torch_convolution(channels, kTaps, frames, depthwise)};
#endif
  contenders.race(state, cold);
}

void settings(benchmark::internal::Benchmark* bench, const std::vector<long>& sizes) {
  bench->ArgsProduct({sizes, {5, 50}})->ArgNames({"size", "frames"})->Iterations(1)->UseManualTime();
  bench->Unit(benchmark::kMicrosecond);
}

}  // namespace
}  // namespace meridane::bench

int main(int argc, char** argv) {
  using namespace meridane::bench;
  return run_program(argc, argv, [] {
    for (const bool cold : {false, true}) {
      const auto add = [cold](const std::string& name, const std::vector<long>& sizes, auto run, auto... arguments) {
        const std::string full = cold ? name + "_cold" : name;
        settings(benchmark::RegisterBenchmark(full.c_str(), run, arguments..., cold), sizes);
      };
      add("lstm", {256, 512}, lstm);
      add("lstm_bytes", {256, 512}, lstm_bytes);
      add("convolution", {256}, convolution, false);
      add("depthwise", {256, 512}, convolution, true);
    }
  });
}
