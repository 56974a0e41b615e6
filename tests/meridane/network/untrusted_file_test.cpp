// Files that say of themselves what isn't so.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "../support/network_samples.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/io/logging.h"

namespace meridane::test {
namespace {

constexpr std::array kManyCounts = {std::uint64_t{1} << 31, std::uint64_t{1} << 61, std::uint64_t{1} << 62,
                                    std::uint64_t{1} << 63, ~std::uint64_t{0},      ~std::uint64_t{0} - 7};

/// What loading says; it must say so at once. The limit is wide: what is meant is that no memory is filled first.
std::string quick_failure(const std::string& bytes) {
  const auto start = std::chrono::steady_clock::now();
  const std::string failure = loading_failure(bytes);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  return failure;
}

const std::string kEnd = "Unexpected end of the stream";

TEST(ACount, OfLayersThatAreNotThereEndsTheReading) {
  for (const std::uint64_t count : kManyCounts) {
    EXPECT_EQ(quick_failure(network_head(1, 1, count, 0)), kEnd) << count;
    EXPECT_EQ(quick_failure(network_head(1, 1, count, 0) + relu_bytes("a")), kEnd) << count;
  }
}

TEST(ACount, OfLinksThatAreNotThereEndsTheReading) {
  for (const std::uint64_t count : kManyCounts) {
    EXPECT_EQ(quick_failure(network_head(1, 1, 0, count)), kEnd) << count;
    EXPECT_EQ(quick_failure(network_head(1, 1, 0, count) + sized_text("_input") + sized_text("_output")), kEnd);
  }
}

TEST(ACount, ThatIsOffByOneIsAnError) {
  const std::string layers = relu_bytes("a") + relu_bytes("b");
  std::string links;
  for (const auto& [from, to] : Links{{"_input", "a"}, {"a", "b"}, {"b", "_output"}}) {
    links += sized_text(from) + sized_text(to);
  }
  EXPECT_EQ(loading_failure(network_head(1, 1, 2, 3) + layers + links), "");
  EXPECT_EQ(loading_failure(network_head(1, 1, 3, 3) + layers + links), "a is not registered in the builder");
  EXPECT_EQ(loading_failure(network_head(1, 1, 1, 3) + layers + links), "Invalid node id [b]");
  EXPECT_EQ(loading_failure(network_head(1, 1, 2, 2) + layers + links), "Starting or terminal node has not been set");
  EXPECT_EQ(loading_failure(network_head(1, 1, 2, 4) + layers + links), kEnd);
}

TEST(AText, LongerThanTheFileEndsTheReading) {
  for (const std::uint64_t length : kManyCounts) {
    EXPECT_EQ(quick_failure(network_head(1, 1, 1, 0) + bytes_of(length)), kEnd) << "id";
    EXPECT_EQ(quick_failure(network_head(1, 1, 1, 0) + bytes_of(length) + "abc"), kEnd) << "id";
    EXPECT_EQ(quick_failure(network_head(1, 1, 1, 0) + sized_text("a") + bytes_of(length)), kEnd) << "type";
    EXPECT_EQ(quick_failure(network_head(1, 1, 0, 1) + bytes_of(length)), kEnd) << "from";
    EXPECT_EQ(quick_failure(network_head(1, 1, 0, 1) + sized_text("_input") + bytes_of(length)), kEnd) << "to";
    EXPECT_EQ(quick_failure(network_head(1, 1, 1, 0) + layer_bytes("a", "Print", "Print") + bytes_of(length)), kEnd)
        << "label";
  }
}

/// Of many tries, since the machine does other things too. Building the tables, and the first throw, come before.
TEST(AMatrix, OfManyMoreValuesThanTheFileHoldsIsRefusedInMicroseconds) {
  constexpr std::int64_t k31 = std::int64_t{1} << 31, k62 = std::int64_t{1} << 62;
  for (const auto& [rows, cols] : {std::pair{k62, std::int64_t{1}}, {std::int64_t{1}, k62}, {k31, k31}}) {
    for (const char* type : {"FullyConnected", "CompressedFullyConnected", "Bias", "Embedding"}) {
      const std::string bytes =
          network_head(1, 1, 1, 0) + layer_bytes("a", type, type + bytes_of(rows) + bytes_of(cols)) + "abcdefgh";
      std::array<double, 101> micros;
      for (double& each : micros) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(loading_failure(bytes), kEnd);
        each = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
      }
      std::nth_element(micros.begin(), micros.begin() + 50, micros.end());
      EXPECT_LT(micros[50], 200) << type << ", " << rows << " x " << cols;
    }
  }
}

TEST(AMatrix, LargerThanTheFileEndsTheReading) {
  const auto head = [](const std::string& type) { return network_head(1, 1, 1, 0) + layer_bytes("a", type, type); };
  const auto size = [](std::int64_t rows, std::int64_t cols) { return bytes_of(rows) + bytes_of(cols); };
  constexpr std::int64_t k31 = std::int64_t{1} << 31;
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  for (const char* type :
       {"FullyConnected", "CompressedFullyConnected", "Bias", "Prod", "Embedding", "BatchNorm", "LayerNorm"}) {
    EXPECT_EQ(quick_failure(head(type) + size(kLargest, 1) + "abcdefgh"), kEnd) << type;
    EXPECT_EQ(quick_failure(head(type) + size(kLargest / 2 + 1, 1)), kEnd) << type << ", 2^62";
    EXPECT_EQ(quick_failure(head(type) + size(3, 1) + std::string(5, ' ')), kEnd) << type;
    for (const auto& [rows, cols] : {std::pair{k31 * k31, std::int64_t{2}},
                                     {std::int64_t{0}, std::int64_t{1}},
                                     {1, 0},
                                     {0, 0},
                                     {-1, 1},
                                     {1, -1},
                                     {-1, -1},
                                     {kLargest, kLargest},
                                     {std::numeric_limits<std::int64_t>::min(), -1}}) {
      EXPECT_EQ(quick_failure(head(type) + size(rows, cols)), "Failed to read matrix binary") << type << rows << cols;
    }
  }
  for (const char* type : {"FullyConnected", "CompressedEmbedding", "Bias"}) {
    EXPECT_EQ(quick_failure(head(type) + size(k31, k31)), kEnd) << type << ", 2^62 in two sizes";
    EXPECT_EQ(quick_failure(head(type) + size(1, kLargest)), kEnd) << type;
  }
}

/// Wherever a file ends too early, loading it fails; and it fails with a message.
TEST(ATruncatedFile, IsAnErrorAtEveryByte) {
  const std::string whole = sample_network();
  ASSERT_EQ(loading_failure(whole), "");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(loading_failure(whole.substr(0, length)), kEnd) << length << " of " << whole.size() << " bytes";
  }
}

TEST(ATruncatedFile, IsAnErrorOfTheStreamAtEveryByte) {
  const std::string whole = sample_network();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    std::istringstream stream(whole.substr(0, length));
    stream.exceptions(std::ios_base::failbit);
    NNParameter network;
    EXPECT_THROW(network.load_binary_stream(stream), std::ios_base::failure) << length;
  }
}

TEST(ATruncatedDocument, IsAnErrorAtEveryByte) {
  const std::string whole = dump_of(*network_of(sample_network()), "text/xml");
  const std::size_t end = whole.rfind("</NN>") + 5;
  ASSERT_EQ(loading_failure(whole.substr(0, end), "text/xml"), "");
  for (std::size_t length = 0; length < end; ++length) {
    EXPECT_NE(loading_failure(whole.substr(0, length), "text/xml"), "") << length << " of " << end << " characters";
  }
}

/// Any other byte at any place is a network or an error.
TEST(AnAlteredFile, IsANetworkOrAnError) {
  log_threshold() = kLogError;
  const std::string whole = sample_network();
  int errors = 0;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const unsigned flip : {0x01u, 0x80u, 0xffu}) {
      std::string altered = whole;
      altered[at] = static_cast<char>(static_cast<unsigned char>(altered[at]) ^ flip);
      if (!loading_failure(altered).empty()) ++errors;
    }
  }
  EXPECT_GT(errors, static_cast<int>(whole.size())) << "most bytes are sizes, types and names";
}

}  // namespace
}  // namespace meridane::test
