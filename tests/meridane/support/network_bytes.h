#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "meridane/framescore/nn.h"

// The binary form of a network, field by field, so that a test can get any of them wrong.

namespace meridane::test {

template <class Number>
std::string bytes_of(Number value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

inline std::string sized_text(const std::string& text) { return bytes_of<std::uint64_t>(text.size()) + text; }

inline std::string matrix_bytes(std::int64_t rows, std::int64_t cols, const std::vector<float>& values) {
  std::string bytes = bytes_of(rows) + bytes_of(cols);
  for (const float value : values) bytes += bytes_of(value);
  return bytes;
}

inline std::string layer_bytes(const std::string& id, const std::string& type, const std::string& record) {
  return sized_text(id) + sized_text(type) + record;
}

/// A layer whose record is its tag and these numbers.
inline std::string numbers_layer(const std::string& id, const std::string& type, const std::vector<float>& numbers) {
  std::string record = type;
  for (const float number : numbers) record += bytes_of(number);
  return layer_bytes(id, type, record);
}

inline std::string relu_bytes(const std::string& id) { return numbers_layer(id, "ReLU", {}); }

/// y = weight x + bias; weight row after row.
inline std::string dense_bytes(const std::string& id, const std::vector<float>& weight,
                               const std::vector<float>& bias) {
  const auto rows = static_cast<std::int64_t>(bias.size());
  const auto cols = static_cast<std::int64_t>(weight.size()) / rows;
  return layer_bytes(id, "FullyConnected",
                     "FullyConnected" + matrix_bytes(rows, cols, weight) + matrix_bytes(rows, 1, bias));
}

using Links = std::vector<std::pair<std::string, std::string>>;

inline std::string network_head(std::uint64_t ninput, std::uint64_t noutput, std::uint64_t layers,
                                std::uint64_t links) {
  return "MerNNpar" + bytes_of(ninput) + bytes_of(noutput) + bytes_of(layers) + bytes_of(links);
}

inline std::string network_bytes(std::uint64_t ninput, std::uint64_t noutput, const std::vector<std::string>& layers,
                                 const Links& links) {
  std::string bytes = network_head(ninput, noutput, layers.size(), links.size());
  for (const auto& layer : layers) bytes += layer;
  for (const auto& [from, to] : links) bytes += sized_text(from) + sized_text(to);
  return bytes;
}

inline std::shared_ptr<NNParameter> network_of(const std::string& text,
                                               const std::string& mime = "application/meridane-bin") {
  std::istringstream stream(text);
  auto network = std::make_shared<NNParameter>();
  network->load(stream, mime);
  return network;
}

inline std::string dump_of(const NNParameter& network, const std::string& mime = "application/meridane-bin") {
  std::ostringstream stream;
  network.dump(stream, mime);
  return stream.str();
}

/// What an action says when it fails with that kind of error; nothing where it doesn't.
template <class Error = BaseRuntimeError, class Action>
std::string failure_of(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

inline std::string loading_failure(const std::string& text, const std::string& mime = "application/meridane-bin") {
  return failure_of([&] { network_of(text, mime); });
}

}  // namespace meridane::test
