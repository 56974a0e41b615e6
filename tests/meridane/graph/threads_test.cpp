// One network, several threads.

#include <atomic>
#include <thread>

#include "stream_networks.h"

namespace meridane::test {
namespace {

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

class ANetwork : public testing::TestWithParam<std::shared_ptr<NNParameter> (*)()> {};

INSTANTIATE_TEST_SUITE_P(Kinds, ANetwork, testing::Values(stateless_network, stateful_network),
                         [](const auto& each) { return each.index == 0 ? "Stateless" : "StatefulAndIn8Bits"; });

TEST_P(ANetwork, ServesScorersOnSeveralThreads) {
  const auto parameter = GetParam()();
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
  const auto parameter = stateless_network();
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
