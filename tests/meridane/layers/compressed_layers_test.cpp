// Layers whose parameters are stored in half precision.

#include <limits>

#include "layer_samples.h"
#include "meridane/io/logging.h"

namespace meridane::test {
namespace {

/// A half and the value that it stands for: 5 bits of exponent with bias 15, 10 bits of fraction.
struct Half {
  std::uint16_t bits;
  float value;
};
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr Half kHalves[] = {
    {0x3c00, 1.0f},       {0x3c01, 1 + 0x1p-10f},
    {0xc248, -3.140625f}, {0x0400, 0x1p-14f},
    {0x7bff, 65504.0f},                                // normal
    {0x0001, 0x1p-24f},   {0x83ff, -1023 * 0x1p-24f},  // subnormal
    {0x0000, 0.0f},       {0x8000, -0.0f},             // zero
    {0x7c00, kInfinity},  {0xfc00, -kInfinity},
};
constexpr std::uint16_t kNaN = 0x7d01;

std::string half_column(const std::vector<std::uint16_t>& bits) {
  Record record;
  record.number(static_cast<std::int64_t>(bits.size())).number<std::int64_t>(1);
  for (const std::uint16_t half : bits) record.number(half);
  return record.bytes();
}

TEST(CompressedLayers, ComputeWithWhatAHalfOfAnyKindStandsFor) {
  std::vector<std::uint16_t> bits;
  for (const Half& half : kHalves) bits.push_back(half.bits);
  bits.push_back(kNaN);
  const auto count = static_cast<Eigen::Index>(bits.size());
  const auto layer = layer_of("CompressedProd", "CompressedProd" + half_column(bits));
  const Matrix y = forward(*layer, Matrix::Constant(count, 2, -1.5f));
  for (Eigen::Index i = 0; i + 1 < count; ++i) {
    EXPECT_EQ(std::bit_cast<std::uint32_t>(y(i, 1)), std::bit_cast<std::uint32_t>(-1.5f * kHalves[i].value)) << i;
  }
  EXPECT_TRUE(std::isnan(y(count - 1, 0)));
}

TEST(CompressedLayers, KeepEachHalfButTheKindOfNaN) {
  std::vector<std::uint16_t> bits;
  for (const Half& half : kHalves) bits.push_back(half.bits);
  const std::string record = "CompressedProd" + half_column(bits);
  const auto layer = layer_of("CompressedProd", record);
  EXPECT_EQ(binary_of(*layer), record);
  EXPECT_EQ(binary_of(*layer_of_xml("CompressedProd", xml_of(*layer))), record);
  EXPECT_EQ(binary_of(*layer_of("CompressedProd", "CompressedProd" + half_column({kNaN}))),
            "CompressedProd" + half_column({0x7e00}));
}

/// The plain layer from the same floats.
TEST(CompressedLayers, ComputeWhatThePlainOnesDoWithTheFloatsOfTheirHalves) {
  int found = 0;
  for (const LayerSample& sample : layer_samples()) {
    if (!sample.type.starts_with("Compressed")) continue;
    ++found;
    const auto layer = sample.load(sample.record);
    std::string element = xml_of(*layer);
    element.erase(element.find("Compressed"), 10);
    const Matrix x = sample.input(1, 9);
    EXPECT_EQ(forward(*layer, x), forward(*layer_of_xml(sample.type.substr(10), element), x)) << sample.type;
  }
  EXPECT_EQ(found, 6);
}

TEST(CompressedLayers, TakeARowForABias) {
  const Matrix weight = Dice(1).matrix(4, 3), bias = Dice(2).matrix(4, 1), x = Dice(3).matrix(3, 2);
  Matrix rows(2, 4);  // row 0 counts
  rows << bias.transpose(), Dice(4).matrix(1, 4);
  const std::string type = "CompressedFullyConnected";
  const auto with = [&](const Matrix& stored) {
    return layer_of(type, Record(type).half_matrix(weight).half_matrix(stored).bytes());
  };
  const auto column = with(bias);
  for (const Matrix& stored : {Matrix(bias.transpose()), rows}) {
    EXPECT_EQ(forward(*with(stored), x), forward(*column, x));
    EXPECT_EQ(binary_of(*with(stored)), binary_of(*column));
  }
}

}  // namespace
}  // namespace meridane::test
