// The memory that a network takes while it is loaded from a file.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "../support/network_bytes.h"

namespace meridane::test {
namespace {

/// The most memory that a process of its own had, in bytes; free memory of this one may be all that an action needs, so
/// whatever is large happens in such a process.
long peak_of(const std::function<void()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      action();
    } catch (...) {
      _exit(1);
    }
    _exit(0);
  }
  int status = -1;
  rusage usage{};
  EXPECT_EQ(wait4(child, &status, 0, &usage), child);
  EXPECT_EQ(status, 0);
  return usage.ru_maxrss * 1024;
}

std::string matrix(std::int64_t rows, std::int64_t cols) {
  return matrix_bytes(rows, cols, std::vector<float>(static_cast<std::size_t>(rows * cols), 0.5f));
}

std::string dense(std::int64_t rows, std::int64_t cols) {
  return "FullyConnected" + matrix(rows, cols) + matrix(rows, 1);
}

/// kernel taps of rows x cols; with groups one weight per feature and tap in each of the columns.
std::string taps(const std::string& type, std::int32_t groups, std::int32_t kernel, std::int64_t rows,
                 std::int64_t cols) {
  std::string record = type;
  for (const std::int32_t number : {groups, 0, 0, 1, 1, kernel}) record += bytes_of(number);
  return record + matrix(kernel * rows, cols) + matrix(type == "TDNN" || groups != 0 ? rows : cols, 1);
}

std::string lstm(std::int64_t cells, std::int64_t cols) {
  return "LSTM" + matrix(4 * cells, cols) + matrix(4 * cells, 1) + matrix(4 * cells, cells);
}

struct Layer {
  const char* name;
  const char* type;
  std::function<std::string()> record;
};

// Each about 6 MB as floats, but for the last ones.
const Layer kLayers[] = {{"OneRow", "FullyConnected", [] { return dense(1, 1500000); }},
                         {"OneColumn", "FullyConnected", [] { return dense(750000, 1); }},
                         {"ThreeRows", "FullyConnected", [] { return dense(3, 500000); }},
                         {"Wide", "FullyConnected", [] { return dense(60, 25000); }},
                         {"High", "FullyConnected", [] { return dense(25000, 60); }},
                         {"Square", "FullyConnected", [] { return dense(1225, 1225); }},
                         {"Taps", "TDNN", [] { return taps("TDNN", 0, 3, 700, 715); }},
                         {"OneTap", "TDNN", [] { return taps("TDNN", 0, 1, 1000, 1500); }},
                         {"TapsBack", "TransposeTDNN", [] { return taps("TransposeTDNN", 0, 2, 850, 900); }},
                         {"OneTapBack", "TransposeTDNN", [] { return taps("TransposeTDNN", 0, 1, 1000, 1500); }},
                         {"TapsOfFeatures", "TDNN", [] { return taps("TDNN", 1, 3, 1000, 500); }},
                         {"Cells", "LSTM", [] { return lstm(400, 500); }}};

class LoadedLayers : public testing::TestWithParam<std::vector<Layer>> {
 protected:
  ~LoadedLayers() override { std::filesystem::remove(path_); }

  void write(const std::vector<Layer>& layers) const {
    std::ofstream file(path_, std::ios::binary);
    file << network_head(1, 1, layers.size(), layers.size() + 1);
    std::string before = "_input";
    std::string links;
    for (const Layer& layer : layers) {
      file << layer_bytes(layer.name, layer.type, layer.record());
      links += sized_text(before) + sized_text(layer.name);
      before = layer.name;
    }
    file << links + sized_text(before) + sized_text("_output");
  }
  void load() const {
    std::ifstream file(path_, std::ios::binary);
    NNParameter().load(file, "application/meridane-bin");
  }

  const std::filesystem::path path_ = testing::TempDir() + "network" + std::to_string(getpid());
};

std::vector<std::vector<Layer>> each_and_all() {
  std::vector<std::vector<Layer>> networks;
  for (const Layer& layer : kLayers) networks.push_back({layer});
  networks.emplace_back(std::begin(kLayers), std::end(kLayers));
  return networks;
}

INSTANTIATE_TEST_SUITE_P(Networks, LoadedLayers, testing::ValuesIn(each_and_all()), [](const auto& layers) {
  return layers.param.size() == 1 ? std::string(layers.param.front().name) : "All";
});

TEST_P(LoadedLayers, TakeLessThanOneAndAHalfTimesTheirFloats) {
  malloc_trim(0);  // what the tests before this one have freed
  write({{"Small", "FullyConnected", [] { return dense(1, 1); }}});
  const long before = peak_of([this] { load(); });  // the program's own pages
  peak_of([this] { write(GetParam()); });
  const auto taken = static_cast<double>(peak_of([this] { load(); }) - before);
  const auto floats = static_cast<double>(std::filesystem::file_size(path_));
  EXPECT_GT(taken, 0.9 * floats);
  EXPECT_LT(taken, 1.5 * floats);
}

}  // namespace
}  // namespace meridane::test
