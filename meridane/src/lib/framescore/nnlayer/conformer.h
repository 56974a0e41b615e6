#pragma once

#include <array>
#include <vector>

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

class RelMHALayer;

/// A block of a streaming Conformer encoder, made of eighteen layers with fixed ids:
///   x += 0.5 fc2(act1(fc1(norm1(x))))
///   n = norm2(x);  x += mha1(queries n, keys and values: the cached frames before n, then n)
///   x += conv3(act3(norm4(conv2(act2(conv1(norm3(x)))))))
///   x += 0.5 fc4(act4(fc3(norm5(x))))
///   y = norm6(x)
/// The last cache_frame frames of n are cached for the next call (none if last_layer is set), so the first calls of a
/// stream see fewer than that. Each sublayer has its state in that of this layer.
/// Input: what RelPosEnc gives, with the encodings of the distances to the cached frames too, or frames alone, such as
/// another Conformer gives; then the encodings are those that RelPosEnc would have given. A call without frames gives
/// none and changes nothing.
/// Record: int cache_frame, int last_layer, 8-byte count of sublayers; for each string id, string type, record.
/// Attributes: cache_frame (mandatory), last_layer (default false; any text but "false" and "0" is true); element
/// `sublayers` of `layer` elements as a network's. mha1 is a RelMHA; no sublayer is a Conformer.
class ConformerLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;

  void load_binary(std::istream& stream) override;
  void dump_binary(std::ostream& stream) const override;
  void load_xml(const XmlElement& element) override;
  void dump_xml(XmlElement& parent, XmlDocument& document) const override;
  LayerSize size() const override;

  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  /// Throws: it runs as a part of a stream only.
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Conformer"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  /// In the order in which they run.
  enum Part : std::size_t {
    norm1,
    fc1,
    act1,
    fc2,
    norm2,
    mha1,
    norm3,
    conv1,
    act2,
    conv2,
    norm4,
    act3,
    conv3,
    norm5,
    fc3,
    act4,
    fc4,
    norm6,
    kParts
  };
  struct State;

  /// The sublayers by their ids. Throws for one that isn't there.
  void set_component();
  void expect_simple(const std::string& type) const;

  const MinibatchPtr& run(Part part, const MinibatchPtr& x, State& state) const;
  /// Runs the parts from `first` to `last` and adds what comes out, times `factor`, to the state's x.
  void add(Part first, Part last, float factor, State& state) const;
  void add_attention(const Minibatch& input, State& state) const;
  /// Brings the projected encodings of the distances -(keys - 1) to queries - 1 into the state.
  void project_positions(const Minibatch& input, Eigen::Index queries, Eigen::Index keys, State& state) const;

  std::int32_t cache_frame_ = 0;
  std::int32_t last_layer_ = 0;
  std::vector<std::shared_ptr<NNLayer>> sublayers_;  ///< in the order of the file
  std::array<const NNLayer*, kParts> parts_{};
  const RelMHALayer* attention_ = nullptr;  ///< mha1
};

using CompressedConformerLayer = Compressed<ConformerLayer>;

}  // namespace meridane
