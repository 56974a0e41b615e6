#pragma once

#include "network_bytes.h"

namespace meridane::test {

/// A network with each type of layer that a file can name, as a chain of 2 rows. No result of it is special.
inline std::string sample_network() {
  const auto column = [](float a, float b) { return matrix_bytes(2, 1, {a, b}); };
  const auto half_column = [] {
    return bytes_of<std::int64_t>(2) + bytes_of<std::int64_t>(1) + std::string("\x00\x3c\x00\x38", 4);
  };
  const std::string half_square =
      bytes_of<std::int64_t>(2) + bytes_of<std::int64_t>(2) + std::string("\x00\x3c\x00\x38\x00\xb8\x00\x3c", 8);
  const std::string eps = bytes_of(1e-5f);
  const std::vector<std::pair<std::string, std::string>> records = {
      {"FullyConnected", matrix_bytes(2, 2, {0.5f, -1.0f, 0.25f, 2.0f}) + column(0.1f, -0.1f)},
      {"CompressedFullyConnected", half_square + half_column()},
      {"Bias", column(0.3f, 0.4f)},
      {"Prod", column(1.5f, -0.5f)},
      {"CompressedProd", half_column()},
      {"Sigmoid", bytes_of(0.9f) + bytes_of(0.1f)},
      {"Tanh", bytes_of(1.1f) + bytes_of(0.2f)},
      {"Swish", bytes_of(1.2f) + bytes_of(-0.1f)},
      {"ReLU", ""},
      {"PReLU", bytes_of(0.25f)},
      {"Softmax", bytes_of(0.8f)},
      {"BatchNorm", column(1.0f, 2.0f) + column(0.0f, 0.5f) + column(0.2f, 0.3f) + column(1.0f, 4.0f) + eps},
      {"CompressedBatchNorm", half_column() + half_column() + half_column() + half_column() + eps},
      {"LayerNorm", column(1.0f, 2.0f) + column(0.0f, 0.5f) + eps},
      {"CompressedLayerNorm", half_column() + half_column() + eps},
      {"GlobalLayerNorm", column(1.0f, 2.0f) + column(0.0f, 0.5f) + eps},
      {"CompressedGlobalLayerNorm", half_column() + half_column() + eps},
      {"Print", sized_text("label")},
      {"GLU", bytes_of(1.0f) + bytes_of(0.0f)},  // one row from here on
      {"Sigmoid", bytes_of(1.0f) + bytes_of(0.0f)},
      {"Embedding", matrix_bytes(2, 1, {0.5f, 0.75f})},
      {"CompressedEmbedding", half_column()},
  };
  std::vector<std::string> layers;
  Links links;
  std::string before = "_input";
  for (const auto& [type, record] : records) {
    const std::string id = "layer " + std::to_string(layers.size());
    layers.push_back(layer_bytes(id, type, type + record));
    links.emplace_back(before, id);
    before = id;
  }
  links.emplace_back(before, "_output");
  return network_bytes(2, 1, layers, links);
}

/// The document form of a small network: head, layers and links as given.
inline std::string document_of(const std::string& layers, const std::string& links,
                               const std::string& attributes = R"(magic="MerNNpar" ninput="1" noutput="1")") {
  return "<NN " + attributes + ">" + layers + links + "</NN>";
}

inline std::string relu_document(const std::string& links) {
  return document_of(R"(<layers><layer type="ReLU" id="a"/></layers>)", "<links>" + links + "</links>");
}

}  // namespace meridane::test
