#pragma once

#include <string>
#include <vector>

#include "layer_record.h"

namespace meridane::test {

/// One layer of each type, for the promises that all of them give.
struct LayerSample {
  enum class Table { plain, quantized };

  std::string type;                     ///< key of the table; of one that is quantized at load not the layer's type
  std::string record;                   ///< what load_binary reads
  std::string description;              ///< of a record that isn't its own
  std::string class_name{};             ///< of a document that isn't its own
  std::vector<std::string> children{};  ///< mandatory elements
  Eigen::Index rows = 5;                ///< of an input that fits
  bool any_rows = false;                ///< whether others fit too
  bool over_frames = false;             ///< whether frames have a part in each other's results
  bool has_bias = false;                ///< whether set_bias() is there
  Table table = Table::plain;
  std::string dump_tag = type;  ///< type of the layer, and tag of what is written

  std::shared_ptr<NNLayer> load(const std::string& bytes) const {
    return table == Table::plain ? layer_of(type, bytes) : layer_of<QuantizedNNLayerBuilder>(type, bytes);
  }
  std::shared_ptr<NNLayer> load_xml(const std::string& text) const {
    return table == Table::plain ? layer_of_xml(type, text) : layer_of_xml<QuantizedNNLayerBuilder>(type, text);
  }
  Matrix input(unsigned seed, Eigen::Index frames) const {
    if (type.ends_with("Embedding")) {
      return Matrix::NullaryExpr(1, frames, [&](Eigen::Index t) { return static_cast<float>((t * 7 + seed) % 6); });
    }
    return Dice(seed).matrix(rows, frames, 3);
  }
};

/// In the order of the tables' contents.
std::vector<LayerSample> layer_samples();

/// A record of an 8-bit matrix of 6 lines and 5 columns, and of its bias.
std::string quantized_record();

inline void PrintTo(const LayerSample& sample, std::ostream* out) { *out << sample.type; }

}  // namespace meridane::test
