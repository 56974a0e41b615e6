// A network with another vector in one of its layers.

#include <gtest/gtest.h>

#include "../support/network_bytes.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

std::string layers_of_two(const std::vector<float>& scales) {
  return network_bytes(2, 2,
                       {relu_bytes("first"), layer_bytes("scale", "Prod", "Prod" + matrix_bytes(2, 1, scales)),
                        dense_bytes("last", {1, 2, 3, 4}, {5, 6})},
                       {{"_input", "first"}, {"first", "scale"}, {"scale", "last"}, {"last", "_output"}});
}

Vector pair(float a, float b) { return Vector{{a, b}}; }

TEST(WithBias, IsTheNetworkWithThatVectorAndLeavesTheOtherAsItIs) {
  const auto network = network_of(layers_of_two({1, 2}));
  const auto changed = network->with_bias("scale", pair(7, 8));
  EXPECT_EQ(dump_of(*changed), layers_of_two({7, 8}));
  EXPECT_EQ(dump_of(*network), layers_of_two({1, 2}));
}

TEST(WithBias, SharesTheOtherLayers) {
  const auto network = network_of(layers_of_two({1, 2}));
  const auto changed = network->with_bias("scale", pair(7, 8));
  EXPECT_EQ(changed->layers()[0], network->layers()[0]);
  EXPECT_NE(changed->layers()[1], network->layers()[1]);
  EXPECT_EQ(changed->layers()[2], network->layers()[2]);
}

TEST(WithBias, Runs) {
  const auto changed = network_of(layers_of_two({1, 2}))->with_bias("scale", pair(10, 100));
  NNScorer scorer(*changed);
  scorer.set_input(std::make_shared<Minibatch>(Matrix(pair(1, 2))));
  EXPECT_EQ(scorer.output(), Matrix(pair(10 + 2 * 200 + 5, 3 * 10 + 4 * 200 + 6)));
}

TEST(WithBias, NeedsTheLayerAndAVectorOfItsSize) {
  const auto network = network_of(layers_of_two({1, 2}));
  EXPECT_EQ(failure_of([&] { network->with_bias("gone", pair(1, 2)); }), "couldn't find \"gone\" layer");
  EXPECT_EQ(failure_of([&] { network->with_bias("first", pair(1, 2)); }), "Not implemented");
  EXPECT_EQ(failure_of([&] { network->with_bias("scale", Vector::Ones(3)); }), "Dimension mismatch in layer scale");
}

}  // namespace
}  // namespace meridane::test
