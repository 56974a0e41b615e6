// Recurrent layers of more cells than a vector has, and of a number that leaves a rest, over more frames than a block.

#include "bidirectional_reference.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index N = 37, D = 21;

/// Gates of a few units: 58 products of at most 1/8.
BothDirections small_weights() {
  BothDirections p(51, N, D);
  for (Direction* direction : {&p.forward, &p.backward}) {
    direction->upward *= 0.125f;
    direction->lateral *= 0.125f;
  }
  return p;
}

class ManyCells : public testing::TestWithParam<Form> {};

INSTANTIATE_TEST_SUITE_P(Forms, ManyCells, testing::Values(Form::plain, Form::half), [](const auto& each) {
  return std::string(each.param == Form::plain ? "Plain" : "Compressed");
});

TEST_P(ManyCells, OfOneDirectionComputeTheirFormula) {
  const Matrix x = Dice(1).matrix(D, 101);
  for (const bool second_bias : {false, true}) {
    Direction p = small_weights().forward;
    p.has_lateral_bias = second_bias;
    const std::string type = prefix_of(GetParam()) + (second_bias ? "ULSTM" : "LSTM");
    Record record(type);
    const auto layer = layer_of(type, add_direction(record, p, GetParam()).bytes());
    ExactMemory memory(N);
    const Exact expected = run(p, x.cast<double>(), memory);
    EXPECT_LT(distance(forward(*layer, x), expected), kRounding);
    for (const Eigen::Index chunk : {1, 5, 50}) {
      EXPECT_EQ(in_chunks(*layer, x, chunk, layer->create_state()), forward(*layer, x)) << chunk;
    }
  }
}

TEST_P(ManyCells, OfTwoDirectionsComputeTheirFormula) {
  const Matrix x = Dice(2).matrix(D, 101);
  const BothDirections p = small_weights();
  for (const std::int32_t sum : {0, 1}) {
    ExactMemory forward_memory(N), backward_memory(N);
    const Exact expected = joined(run(p.forward, x.cast<double>(), forward_memory),
                                  run_reversed(p.backward, x.cast<double>(), backward_memory), sum != 0);
    const std::string type = prefix_of(GetParam()) + "BLSTM";
    const auto both = layer_of(type, bidirectional_record("BLSTM", GetParam(), p, {sum}));
    EXPECT_LT(distance(forward(*both, x), expected), 2 * kRounding);
    // One that waits for all frames sees the same.
    const auto cut =
        layer_of(prefix_of(GetParam()) + "LCBLSTM", bidirectional_record("LCBLSTM", GetParam(), p, {60, 50, 1, sum}));
    EXPECT_LT(distance(forward(*cut, x), expected), 2 * kRounding);
  }
}

}  // namespace
}  // namespace meridane::test
