// Loading a binary network of 20 MB, in layers of many shapes, from a file that the machine has in memory. "memory" is
// what the process took at most for it, "kept" what it takes afterwards, both in sizes of the network as floats.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "meridane/framescore/nn.h"

namespace meridane::bench {
namespace {

template <class Number>
void write(std::ostream& file, Number value) {
  file.write(reinterpret_cast<const char*>(&value), sizeof value);
}

void write_text(std::ostream& file, const std::string& text) {
  write<std::uint64_t>(file, text.size());
  file << text;
}

void write_matrix(std::ostream& file, std::int64_t rows, std::int64_t cols) {
  write(file, rows);
  write(file, cols);
  for (std::int64_t i = 0; i < rows * cols; ++i) write(file, static_cast<float>(i % 13) / 128.0f - 0.05f);
}

void write_network(const std::filesystem::path& path) {
  constexpr std::int64_t kShapes[][2] = {{512, 512},   {512, 512}, {512, 512}, {512, 512}, {1024, 1800},
                                         {1024, 1024}, {1, 50000}, {50000, 1}, {3, 20000}, {17, 17},
                                         {257, 1025},  {65, 700},  {40, 9000}, {2000, 120}};
  std::ofstream file(path, std::ios::binary);
  file << "MerNNpar";
  for (const std::uint64_t number : {1ul, 1ul, std::size(kShapes), std::size(kShapes) + 1}) write(file, number);
  for (std::size_t i = 0; i < std::size(kShapes); ++i) {
    write_text(file, std::to_string(i));
    write_text(file, "FullyConnected");
    file << "FullyConnected";
    write_matrix(file, kShapes[i][0], kShapes[i][1]);
    write_matrix(file, kShapes[i][0], 1);
  }
  for (std::size_t i = 0; i <= std::size(kShapes); ++i) {
    write_text(file, i == 0 ? "_input" : std::to_string(i - 1));
    write_text(file, i == std::size(kShapes) ? "_output" : std::to_string(i));
  }
}

/// A number of bytes of /proc/self/status.
double status(const std::string& name) {
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) * 1024;
  }
  return 0;
}

void load(benchmark::State& state) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("network" + std::to_string(getpid()) + ".bin");
  write_network(path);
  const auto floats = static_cast<double>(std::filesystem::file_size(path));
  double before = 0, kept = 0;
  for (auto _ : state) {
    state.PauseTiming();
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";  // the most is that since now
    before = status("VmRSS");
    state.ResumeTiming();
    std::ifstream file(path, std::ios::binary);
    NNParameter network;
    network.load(file, "application/meridane-bin");
    state.PauseTiming();
    kept = status("VmRSS");
    state.ResumeTiming();
  }
  state.counters["MB"] = floats * 1e-6;
  state.counters["memory"] = (status("VmHWM") - before) / floats;
  state.counters["kept"] = (kept - before) / floats;
  std::filesystem::remove(path);
}

BENCHMARK(load)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);

}  // namespace
}  // namespace meridane::bench

BENCHMARK_MAIN();
