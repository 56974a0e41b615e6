#include "meridane/framescore/nnlayer/nnlayer.h"

#include <rapidxml/rapidxml.hpp>

#include "meridane/error.h"

namespace meridane {

MinibatchPtr LayerInputs::result(std::span<const std::uint64_t> shape, Eigen::Index frames) const {
  if (spare_ == nullptr) return Minibatch::uninitialised(shape, frames);
  spare_->resize(shape, frames);
  return std::move(spare_);
}

MinibatchPtr LayerInputs::result(Eigen::Index rows, Eigen::Index frames) const {
  MinibatchPtr given = result();
  given->resize(rows, frames);
  return given;
}

MinibatchPtr LayerInputs::result() const {
  if (spare_ == nullptr) return std::make_shared<Minibatch>(Matrix());
  return std::move(spare_);
}

MinibatchPtr NNLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>&) const {
  return forward(inputs);
}

void NNLayer::backward() { raise("Not implemented"); }
void NNLayer::update() { raise("Not implemented"); }
void NNLayer::set_bias(const Vector&) { raise("Not implemented"); }

const MinibatchPtr& NNLayer::only_input(const LayerInputs& inputs) const {
  if (inputs.size() > 1) raise("Layer %s does not accept multiple input streams", id_.c_str());
  if (inputs.size() == 0 || inputs[0] == nullptr) raise("No data is being provided to layer %s", id_.c_str());
  return inputs[0];
}

void NNLayer::expect_inputs(const LayerInputs& inputs) const {
  bool complete = inputs.size() > 0;
  for (const MinibatchPtr& input : inputs.streams()) complete = complete && input != nullptr;
  if (!complete) raise("No data is being provided to layer %s", id_.c_str());
}

void NNLayer::expect_rows(const Minibatch& input, Eigen::Index rows) const {
  if (input.content().rows() != rows && input.size() > 0) raise_dimension_mismatch();
}

void NNLayer::raise_dimension_mismatch() const {
  raise<DimensionMismatchError>("Dimension mismatch in layer %s", id_.c_str());
}

void XmlStoreTraits<NNLayer>::load(NNLayer& layer, const XmlFile& file) {
  const XmlElement* const root = file.root();
  if (root == nullptr) raise("Failed to parse xml");
  layer.load_xml(*root);
}

void XmlStoreTraits<NNLayer>::dump(const NNLayer& layer, XmlFile& file) {
  layer.dump_xml(file.document(), file.document());
}

}  // namespace meridane
