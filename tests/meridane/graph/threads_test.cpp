// One network, several threads.

#include <atomic>
#include <thread>

#include "../support/graph_layers.h"
#include "../support/network_bytes.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

std::vector<float> ramp(std::size_t count, float step) {
  std::vector<float> values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = step * static_cast<float>(i % 13) - 0.5f;
  return values;
}

std::shared_ptr<NNParameter> stateless_network() {
  return network_of(network_bytes(
      8, 8,
      {dense_bytes("dense", ramp(64, 0.07f), ramp(8, 0.1f)), numbers_layer("tanh", "Tanh", {1.0f, 0.0f}),
       layer_bytes(
           "norm", "LayerNorm",
           "LayerNorm" + matrix_bytes(8, 1, ramp(8, 0.2f)) + matrix_bytes(8, 1, ramp(8, 0.3f)) + bytes_of(1e-5f)),
       numbers_layer("softmax", "Softmax", {1.0f})},
      {{"_input", "dense"}, {"dense", "tanh"}, {"tanh", "norm"}, {"norm", "softmax"}, {"softmax", "_output"}}));
}

std::string matrix(std::size_t rows, std::size_t cols, float step) {
  return matrix_bytes(static_cast<std::int64_t>(rows), static_cast<std::int64_t>(cols), ramp(rows * cols, step));
}

std::string lstm(std::size_t rows) { return matrix(32, rows, 0.05f) + matrix(32, 1, 0.03f) + matrix(32, 8, 0.04f); }

/// Recurrent layers and layers in 8 bits, of 8 cells each.
std::shared_ptr<NNParameter> stateful_network() {
  ensure_layer_tables();
  const auto layer = [](auto build, const std::string& type, const std::string& record) {
    std::istringstream stream(type + record);
    return build(type, type + std::to_string(record.size()), stream);
  };
  const auto plain = [](const std::string& type, const std::string& id, std::istream& stream) {
    return NNLayerBuilder::build(type, id, nullptr, stream);
  };
  const auto in_codes = [](const std::string& type, const std::string& id, std::istream& stream) {
    return QuantizedNNLayerBuilder::build(type, "8-bit " + id, nullptr, stream);
  };
  const std::string bias = matrix(32, 1, 0.02f);
  const std::string two = lstm(8) + bias + lstm(8) + bias;
  const std::vector<std::shared_ptr<NNLayer>> layers = {
      layer(plain, "LSTM", lstm(8)),
      layer(in_codes, "FullyConnected", matrix(8, 8, 0.07f) + matrix(8, 1, 0.1f)),
      layer(in_codes, "LSTM", lstm(8)),
      layer(plain, "ULSTM", lstm(8) + bias),
      layer(in_codes, "BLSTM", two + bytes_of<std::int32_t>(1)),
      layer(plain, "LCBLSTM",
            two + bytes_of<std::int32_t>(3) + bytes_of<std::int32_t>(2) + bytes_of<std::int32_t>(1) +
                bytes_of<std::int32_t>(1))};
  Links links = {{"_input", layers.front()->id()}};
  for (std::size_t i = 1; i < layers.size(); ++i) links.emplace_back(layers[i - 1]->id(), layers[i]->id());
  links.emplace_back(layers.back()->id(), "_output");
  return std::make_shared<HandmadeNetwork>(8, 8, layers, links);
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
