#pragma once

#include <string>
#include <utility>
#include <vector>

#include "../../e2easr_model/support/models.h"

// Small enhancement models on samples of 16 kHz, frames of 10 ms.

namespace sonivo::test {

using e2e::test::gains_network;
using Symbols = std::vector<std::pair<std::string, std::string>>;

/// The symbols that are given stand behind the usual ones and override them.
inline std::string model_of(const std::string& network, const Symbols& more = {}) {
  Symbols symbols = {{"sample-frequency", "16000"}, {"frame-length", "10"}, {"frame-shift", "10"}};
  symbols.insert(symbols.end(), more.begin(), more.end());
  return e2e::test::model_bytes({.network = network, .symbols = symbols});
}

/// First row the input, second row gain times the input: what the strength goes between.
inline std::string gain_model(float gain) { return model_of(gains_network({1.0f, gain})); }

/// Three rows, of which no model that doesn't switch can make one.
inline std::string three_row_model() { return model_of(gains_network({1.0f, 1.0f, 1.0f})); }

/// Silent, and an error as soon as a sample reaches a tenth of full scale.
inline std::string quiet_rooms_model() {
  using namespace e2e::test;
  const std::string table = layer_bytes("e", "Embedding", "Embedding" + matrix_bytes(1, 1, {0.0f}));
  return model_of(
      network_bytes(1, 1, {dense_bytes("a", {10.0f}, {0.0f}), table}, {{"_input", "a"}, {"a", "e"}, {"e", "_output"}}));
}

}  // namespace sonivo::test
