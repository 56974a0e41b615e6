// What loading a network takes.

#include <gtest/gtest.h>

#include "../../relay/allocation/count_allocations.h"
#include "../support/network_bytes.h"

namespace meridane::test {
namespace {

/// Bytes asked for while the network is loaded.
std::uint64_t memory_of_loading(const std::string& bytes) {
  std::istringstream stream(bytes);
  NNParameter network;
  const std::uint64_t before = sonivo::test::allocated_bytes();
  network.load_binary_stream(stream);
  return sonivo::test::allocated_bytes() - before;
}

TEST(LoadingAVector, TakesNoMemoryForTheRowsBehindItsFirst) {
  constexpr std::int64_t kRows = 1000, kCols = 500;
  const auto network_with = [](std::int64_t rows) {
    const std::vector<float> values(static_cast<std::size_t>(rows * kCols), 1.0f);
    return network_bytes(kCols, kCols, {layer_bytes("a", "Bias", "Bias" + matrix_bytes(rows, kCols, values))},
                         {{"_input", "a"}, {"a", "_output"}});
  };
  EXPECT_EQ(memory_of_loading(network_with(kRows)), memory_of_loading(network_with(1)));
}

}  // namespace
}  // namespace meridane::test
