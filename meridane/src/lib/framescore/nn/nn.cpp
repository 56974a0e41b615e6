#include "meridane/framescore/nn.h"

#include <sstream>

#include "lib/framescore/parameter_file.h"
#include "meridane/framescore/multigmm.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/framescore/scorer.h"
#include "meridane/io/binary.h"

namespace meridane {
namespace {

[[maybe_unused]] const bool registered_network =
    FrameScoreParameterBuilder::regist(kNNMagic, [](std::istream& stream, const std::string& mime) {
      auto parameter = std::make_shared<NNParameter>(0);
      parameter->load(stream, mime);
      return std::shared_ptr<FrameScoreParameter>(parameter);
    });

[[maybe_unused]] const bool mixtures_registered =
    FrameScoreParameterBuilder::regist(kGMMMagic, [](std::istream& stream, const std::string& mime) {
      auto parameter = std::make_shared<MultiGMMParameter>();
      parameter->load(stream, mime);
      return std::shared_ptr<FrameScoreParameter>(parameter);
    });

}  // namespace

void ensure_parameter_table() {}

void NNParameter::load(std::istream& stream, const std::string& mime) {
  if (is_xml(mime)) {
    load_xml_stream(stream);
  } else {
    load_binary_stream(stream);
  }
}

void NNParameter::dump(std::ostream& stream, const std::string& mime) const {
  if (is_xml(mime)) {
    dump_xml_stream(stream);
  } else {
    dump_binary_stream(stream);
  }
}

std::shared_ptr<FrameScorer> NNParameter::create_scorer() const {
  bool holds_back = false;
  bool changes_length = false;
  for (const auto& layer : layers_) {
    holds_back |= layer->type().find("LCBLSTM") != std::string::npos;
    changes_length |= layer->is_variable_length();
  }
  if (holds_back) return std::make_shared<NNScorerForLCBLSTM>(*this);
  if (changes_length) return std::make_shared<NNScorerVariableLength>(*this);
  return std::make_shared<NNScorer>(*this);
}

std::shared_ptr<NNParameter> NNParameter::with_bias(const std::string& id, const Vector& bias) const {
  auto changed = std::make_shared<NNParameter>(mode_);
  changed->set_sizes(ninput_, noutput_);
  bool found = false;
  for (const auto& layer : layers_) {
    if (layer->id() != id) {
      changed->add_layer(layer);
      continue;
    }
    std::stringstream record;
    layer->dump_binary(record);
    auto copy = build_layer(layer->type(), id, nullptr, record);
    copy->set_bias(bias);
    changed->add_layer(std::move(copy));
    found = true;
  }
  if (!found) raise("couldn't find \"%s\" layer", id.c_str());
  for (const auto& [from, to] : links_) changed->add_link(from, to);
  changed->fix();
  return changed;
}

void NNParameter::set_sizes(std::uint64_t ninput, std::uint64_t noutput) {
  ninput_ = ninput;
  noutput_ = noutput;
}

void NNParameter::add_layer(std::shared_ptr<NNLayer> layer) {
  graph_.add_node(layer->id(), layer);
  layers_.push_back(std::move(layer));
}

void NNParameter::add_link(std::string from, std::string to) {
  if (to == "_output") {
    if (has_terminal_) raise("duplicate attribute \"_output\"");
    graph_.set_terminal_node(from);
    has_terminal_ = true;
  } else {
    graph_.add_link(from, to);
  }
  links_.emplace_back(std::move(from), std::move(to));
}

std::shared_ptr<NNLayer> NNParameter::build_layer(const std::string& type, const std::string& id,
                                                  const XmlElement* element, std::istream& stream) const {
  ensure_layer_tables();
  // The mode makes no difference yet: networks of quantized layers would be built here, from their own table.
  return NNLayerBuilder::build(type, id, element, stream);
}

void BinaryStreamTraits<NNParameter>::load(NNParameter& parameter, std::istream& stream) {
  expect_magic(stream, kNNMagic, "NN parameter");
  const auto ninput = read_number<std::uint64_t>(stream);
  const auto noutput = read_number<std::uint64_t>(stream);
  parameter.set_sizes(ninput, noutput);
  const auto layers = read_number<std::uint64_t>(stream);
  const auto links = read_number<std::uint64_t>(stream);
  for (std::uint64_t i = 0; i < layers; ++i) {
    const std::string id = read_string(stream);
    const std::string type = read_string(stream);
    parameter.add_layer(parameter.build_layer(type, id, nullptr, stream));
  }
  for (std::uint64_t i = 0; i < links; ++i) {
    std::string from = read_string(stream);
    std::string to = read_string(stream);
    parameter.add_link(std::move(from), std::move(to));
  }
  parameter.fix();
}

void BinaryStreamTraits<NNParameter>::dump(const NNParameter& parameter, std::ostream& stream) {
  write_magic(stream, kNNMagic);
  write_number(stream, parameter.ninput());
  write_number(stream, parameter.noutput());
  write_number<std::uint64_t>(stream, parameter.layers().size());
  write_number<std::uint64_t>(stream, parameter.links().size());
  for (const auto& layer : parameter.layers()) {
    write_string(stream, layer->id());
    write_string(stream, layer->type());
    layer->dump_binary(stream);
  }
  for (const auto& [from, to] : parameter.links()) {
    write_string(stream, from);
    write_string(stream, to);
  }
}

}  // namespace meridane
