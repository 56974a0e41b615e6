#pragma once

#include <memory>
#include <string>
#include <vector>

#include "../support/graph_layers.h"
#include "../support/network_bytes.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/framescore/scorer.h"

// Networks of 8 rows for tests that run streams, and what the streams hold.

namespace meridane::test {

inline std::vector<float> ramp(std::size_t count, float step) {
  std::vector<float> values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = step * static_cast<float>(i % 13) - 0.5f;
  return values;
}

inline std::shared_ptr<NNParameter> stateless_network() {
  return network_of(network_bytes(
      8, 8,
      {dense_bytes("dense", ramp(64, 0.07f), ramp(8, 0.1f)), numbers_layer("tanh", "Tanh", {1.0f, 0.0f}),
       layer_bytes(
           "norm", "LayerNorm",
           "LayerNorm" + matrix_bytes(8, 1, ramp(8, 0.2f)) + matrix_bytes(8, 1, ramp(8, 0.3f)) + bytes_of(1e-5f)),
       numbers_layer("softmax", "Softmax", {1.0f})},
      {{"_input", "dense"}, {"dense", "tanh"}, {"tanh", "norm"}, {"norm", "softmax"}, {"softmax", "_output"}}));
}

inline std::string matrix(std::size_t rows, std::size_t cols, float step) {
  return matrix_bytes(static_cast<std::int64_t>(rows), static_cast<std::int64_t>(cols), ramp(rows * cols, step));
}

inline std::string lstm(std::size_t rows) {
  return matrix(32, rows, 0.05f) + matrix(32, 1, 0.03f) + matrix(32, 8, 0.04f);
}

/// Layers that remember all of a stream or look back into it, and layers in 8 bits; recurrent ones of 8 cells each. The
/// last one holds frames back.
inline std::shared_ptr<NNParameter> stateful_network() {
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
  std::string taps;  // causal, padded with 2 frames: 3 taps of 8 x 8, one frame apart
  for (const std::int32_t number : {0, 1, 2, 1, 1, 3}) taps += bytes_of(number);
  const std::vector<std::shared_ptr<NNLayer>> layers = {
      layer(plain, "TDNN", taps + matrix(24, 8, 0.06f) + matrix(8, 1, 0.05f)),
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

inline Matrix input_of(int stream, int step) {
  Matrix input(8, 5);
  for (Eigen::Index i = 0; i < input.size(); ++i) {
    input.data()[i] = static_cast<float>((i * 7 + step * 3 + stream * 11) % 19) / 10.0f - 0.9f;
  }
  return input;
}

}  // namespace meridane::test
