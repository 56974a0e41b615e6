#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "../../meridane/support/network_bytes.h"
#include "feature_extractor/input.h"

// Small networks and the binary form of models, field by field, so that a test can get any of them wrong.

namespace sonivo::e2e::test {

using meridane::test::bytes_of;
using meridane::test::dense_bytes;
using meridane::test::layer_bytes;
using meridane::test::matrix_bytes;
using meridane::test::network_bytes;

/// Row i is gains[i] times the input, a row of samples.
inline std::string gains_network(const std::vector<float>& gains) {
  return network_bytes(1, gains.size(), {dense_bytes("a", gains, std::vector<float>(gains.size(), 0.0f))},
                       {{"_input", "a"}, {"a", "_output"}});
}

/// Two rows: x, and x plus the sample before. The first sample of a stream has none before it.
inline std::string memory_network() {
  const std::string record = "TDNN" + bytes_of<std::int32_t>(0) + bytes_of<std::int32_t>(1) +
                             bytes_of<std::int32_t>(2) + bytes_of<std::int32_t>(1) + bytes_of<std::int32_t>(1) +
                             bytes_of<std::int32_t>(2) + matrix_bytes(4, 1, {0.0f, 1.0f, 1.0f, 1.0f}) +
                             matrix_bytes(2, 1, {0.0f, 0.0f});
  return network_bytes(1, 2, {layer_bytes("a", "TDNN", record)}, {{"_input", "a"}, {"a", "_output"}});
}

/// One row: of every four samples the last. Fewer than four give nothing yet.
inline std::string thinning_network() {
  const std::string record = "TDNN" + bytes_of<std::int32_t>(0) + bytes_of<std::int32_t>(1) +
                             bytes_of<std::int32_t>(4) + bytes_of<std::int32_t>(1) + bytes_of<std::int32_t>(4) +
                             bytes_of<std::int32_t>(4) + matrix_bytes(4, 1, {0.0f, 0.0f, 0.0f, 1.0f}) +
                             matrix_bytes(1, 1, {0.0f});
  return network_bytes(1, 1, {layer_bytes("a", "TDNN", record)}, {{"_input", "a"}, {"a", "_output"}});
}

/// y = scale x, element by element, of as many rows as there are scales.
inline std::string scales_network(const std::string& id, const std::vector<float>& scales) {
  const auto rows = static_cast<std::int64_t>(scales.size());
  return network_bytes(scales.size(), scales.size(), {layer_bytes(id, "Prod", "Prod" + matrix_bytes(rows, 1, scales))},
                       {{"_input", id}, {id, "_output"}});
}

/// A flow of one node between input and output.
inline std::string flow_text(const std::string& type, const std::string& settings) {
  return "<flow><node type=\"" + type + "\" id=\"n\">" + settings +
         "</node><link from_node=\"_input\" from_port=\"_input\" to_node=\"n\" to_port=\"_input\"/>"
         "<link from_node=\"n\" from_port=\"_output\" to_node=\"_output\" to_port=\"_output\"/></flow>";
}

/// A 32-bit size and the text.
inline std::string part(const std::string& text) {
  return bytes_of<std::uint32_t>(static_cast<std::uint32_t>(text.size())) + text;
}

struct ModelParts {
  std::string magic = "senb";
  std::string version = "20231004";
  std::uint32_t has_preprocessor = 0;
  std::uint32_t preprocessor_kind = 0;
  std::string preprocessor = {};
  std::uint32_t network_kind = 1;
  std::string network = gains_network({1.0f});
  std::vector<std::pair<std::string, std::string>> symbols = {};
  std::optional<std::uint32_t> symbol_count = std::nullopt;  ///< what the file says, if not the truth
};

inline std::string model_bytes(const ModelParts& parts) {
  std::string version = parts.version;
  version.resize(8, '\0');
  std::string bytes = parts.magic + version + bytes_of(parts.has_preprocessor);
  if (parts.has_preprocessor != 0) bytes += bytes_of(parts.preprocessor_kind) + part(parts.preprocessor);
  bytes += bytes_of(parts.network_kind) + part(parts.network);
  bytes += bytes_of(parts.symbol_count.value_or(static_cast<std::uint32_t>(parts.symbols.size())));
  for (const auto& [name, value] : parts.symbols) bytes += part(name) + part(value);
  return bytes;
}

template <class Model>
void load_bytes(Model& model, const std::string& bytes) {
  std::istringstream stream(bytes);
  model.load(stream, false);
}

template <class Model>
std::string saved_bytes(const Model& model) {
  std::ostringstream stream;
  model.save(stream);
  return stream.str();
}

/// A source of given samples, which says how much was asked at once.
class Samples : public Input<short> {
 public:
  explicit Samples(std::vector<short> samples) : samples_(std::move(samples)) {}

  int data(std::vector<short>& out, int require, bool) override {
    int count = 0;
    for (; count < require && next_ < samples_.size(); ++count) out.push_back(samples_[next_++]);
    return count;
  }
  bool end() override { return next_ == samples_.size(); }

 private:
  std::vector<short> samples_;
  std::size_t next_ = 0;
};

inline std::shared_ptr<Samples> samples(std::vector<short> values) {
  return std::make_shared<Samples>(std::move(values));
}

/// first, first + 1, ...
inline std::vector<short> counted(std::size_t count, int first = 1) {
  std::vector<short> values;
  for (std::size_t i = 0; i < count; ++i) values.push_back(static_cast<short>(first + static_cast<int>(i)));
  return values;
}

}  // namespace sonivo::e2e::test
