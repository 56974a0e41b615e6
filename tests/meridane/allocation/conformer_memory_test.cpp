// What a Conformer's steps allocate once it has seen the shape of its input.

#include <gtest/gtest.h>

#include <array>

#include "../../relay/allocation/count_allocations.h"
#include "../conformer/conformer_samples.h"
#include "../support/graph_layers.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index kRows = 24;
constexpr int kCache = 12;

std::shared_ptr<NNLayer> named(const std::string& id, const std::string& type, const std::string& record) {
  ensure_layer_tables();
  std::istringstream stream(record);
  return NNLayerBuilder::build(type, id, nullptr, stream);
}

TEST(AConformersSteps, AllocateNothing) {
  const ConformerSample block(1, kRows, 4);
  const std::string positions = Record("RelPosEnc").number<std::int32_t>(kCache).number<std::int32_t>(16).bytes();
  const HandmadeNetwork network(
      kRows, kRows,
      {named("positions", "RelPosEnc", positions), named("first", "Conformer", block.record(kCache)),
       named("second", "Conformer", block.record(kCache)), named("last", "Conformer", block.record(kCache, 1))},
      {{"_input", "positions"}, {"positions", "first"}, {"first", "second"}, {"second", "last"}, {"last", "_output"}});
  NNScorer scorer(network);
  for (const Eigen::Index frames : {5, 1, 20}) {
    const std::array inputs = {minibatch(Matrix::Random(kRows, frames)), minibatch(Matrix::Random(kRows, frames))};
    std::uint64_t before = 0;
    for (std::size_t step = 0; step < 60; ++step) {
      if (step == 30) before = sonivo::test::allocations();
      scorer.set_input(inputs[step % 2]);
      scorer.output_minibatch();
    }
    EXPECT_EQ(sonivo::test::allocations() - before, 0u) << frames << " frames";
  }
}

TEST(RelativeAttentionsSteps, AllocateNothing) {
  const ConformerSample block(1, kRows, 4);
  const auto layer = named("attention", "RelMHA", block.attention.record());
  const auto positions = positions_for(kCache);
  const auto state = positions->create_state();
  constexpr Eigen::Index kFrames = 5;
  const LayerInputs frames = {minibatch(Matrix::Random(kRows, kFrames))};
  positions->forward(frames, state);
  const MinibatchPtr positioned = positions->forward(frames, state);
  for (const MinibatchPtr& input : {minibatch(Matrix::Random(2 * kRows, 3 * kFrames)), positioned}) {
    LayerInputs inputs = {input};
    MinibatchPtr y = layer->forward(inputs, nullptr);
    std::uint64_t before = 0;
    for (int step = 0; step < 20; ++step) {
      if (step == 5) before = sonivo::test::allocations();
      inputs.set_spare(std::move(y));
      y = layer->forward(inputs, nullptr);
    }
    EXPECT_EQ(sonivo::test::allocations() - before, 0u);
    EXPECT_EQ(y->content().cols(), kFrames);
  }
}

}  // namespace
}  // namespace meridane::test
