// One network, several threads.

#include <atomic>
#include <thread>

#include "../support/graph_layers.h"
#include "../support/network_bytes.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

std::vector<float> ramp(std::size_t count, float step) {
  std::vector<float> values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = step * static_cast<float>(i % 13) - 0.5f;
  return values;
}

std::shared_ptr<NNParameter> network() {
  return network_of(network_bytes(
      8, 8,
      {dense_bytes("dense", ramp(64, 0.07f), ramp(8, 0.1f)), numbers_layer("tanh", "Tanh", {1.0f, 0.0f}),
       layer_bytes(
           "norm", "LayerNorm",
           "LayerNorm" + matrix_bytes(8, 1, ramp(8, 0.2f)) + matrix_bytes(8, 1, ramp(8, 0.3f)) + bytes_of(1e-5f)),
       numbers_layer("softmax", "Softmax", {1.0f})},
      {{"_input", "dense"}, {"dense", "tanh"}, {"tanh", "norm"}, {"norm", "softmax"}, {"softmax", "_output"}}));
}

Matrix input_of(int stream, int step) {
  Matrix input(8, 5);
  for (Eigen::Index i = 0; i < input.size(); ++i) {
    input.data()[i] = static_cast<float>((i * 7 + step * 3 + stream * 11) % 19) / 10.0f - 0.9f;
  }
  return input;
}

constexpr int kSteps = 200;

/// The outputs of a stream, one after the other.
std::vector<Matrix> outputs_of(const NNParameter& parameter, int stream) {
  const std::shared_ptr<FrameScorer> made = parameter.create_scorer();
  auto& scorer = dynamic_cast<NNScorer&>(*made);
  std::vector<Matrix> outputs;
  for (int step = 0; step < kSteps; ++step) {
    scorer.set_input(std::make_shared<Minibatch>(input_of(stream, step)));
    outputs.push_back(scorer.output());
  }
  return outputs;
}

TEST(ANetwork, ServesScorersOnSeveralThreads) {
  const auto parameter = network();
  std::vector<std::vector<Matrix>> expected;
  for (int stream = 0; stream < 2; ++stream) expected.push_back(outputs_of(*parameter, stream));
  std::vector<std::vector<Matrix>> found(2);
  std::vector<std::thread> threads;
  for (int stream = 0; stream < 2; ++stream) {
    threads.emplace_back([&, stream] { found[static_cast<std::size_t>(stream)] = outputs_of(*parameter, stream); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(found, expected);
  EXPECT_NE(expected[0], expected[1]);
}

/// The memory of a result goes back to its scorer when the other thread drops it, at any moment.
TEST(AResult, MayBeReadOnAnotherThreadWhileItsScorerGoesOn) {
  const auto parameter = network();
  NNScorer scorer(*parameter);
  std::atomic<MinibatchPtr*> handed = nullptr;
  std::atomic<bool> stop = false;
  double read_sum = 0;
  std::thread reader([&] {
    while (true) {
      MinibatchPtr* const taken = handed.exchange(nullptr, std::memory_order_acquire);
      if (taken != nullptr) {
        read_sum += static_cast<double>((*taken)->content().sum());
        delete taken;
      } else if (stop) {
        return;
      } else {
        std::this_thread::yield();
      }
    }
  });
  double expected = 0;
  for (int step = 0; step < 5 * kSteps; ++step) {
    scorer.set_input(std::make_shared<Minibatch>(input_of(0, step)));
    scorer.execute();
    expected += static_cast<double>(scorer.output_minibatch().content().sum());
    auto* const result = new MinibatchPtr(scorer.get_layer_output("softmax"));
    MinibatchPtr* before = nullptr;
    while (!handed.compare_exchange_weak(before, result, std::memory_order_release)) {
      before = nullptr;
      std::this_thread::yield();
    }
  }
  while (handed != nullptr) std::this_thread::yield();
  stop = true;
  reader.join();
  EXPECT_EQ(read_sum, expected) << "what was handed over was whole";
}

}  // namespace
}  // namespace meridane::test
