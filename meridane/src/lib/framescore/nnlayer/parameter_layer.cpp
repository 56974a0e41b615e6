#include "lib/framescore/nnlayer/parameter_layer.h"

#include <algorithm>
#include <rapidxml/rapidxml.hpp>

#include "lib/framescore/nnlayer/aligned_floats.h"
#include "lib/framescore/nnlayer/parameter_visitors.h"
#include "meridane/error.h"
#include "meridane/io/binary.h"

namespace meridane {

std::shared_ptr<float> ParameterLayer::alloc_param(const std::string&, Eigen::Index rows, Eigen::Index cols) {
  const std::size_t floats = PackedWeight::block_size(static_cast<std::size_t>(rows), static_cast<std::size_t>(cols));
  std::shared_ptr<float> block = aligned_floats(floats);
  std::fill(block.get() + rows * cols, block.get() + floats, 0.0f);
  return block;
}

void ParameterLayer::show(ParameterVisitor& visitor) const {
  // The visitors of this file read only; that they are given references to write into is for those that load.
  const_cast<ParameterLayer*>(this)->parameters(visitor);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

void ParameterLayer::raise_invalid_format() const {
  raise<InvalidFormat>("invalid format (expected \"%s\")", description().c_str());
}

void ParameterLayer::raise_incorrect(const char* name) const { meridane::raise_incorrect(name, tag()); }

void ParameterLayer::load_binary(std::istream& stream) {
  std::string found(tag().size(), '\0');
  read_bytes(stream, found.data(), found.size());
  if (found != tag()) raise_invalid_format();
  BinaryLoader loader(*this, tag(), coding(), stream);
  parameters(loader);
  loaded();
}

void ParameterLayer::dump_binary(std::ostream& stream) const {
  write_bytes(stream, tag().data(), tag().size());
  BinaryDumper dumper(coding(), stream);
  show(dumper);
}

void ParameterLayer::load_xml(const XmlElement& element) {
  if (fetch_attribute(element, "type") != tag()) raise_wrong_type(class_name());
  XmlLoader loader(*this, tag(), element);
  parameters(loader);
  loaded();
}

void ParameterLayer::dump_xml(XmlElement& parent, XmlDocument& document) const {
  XmlElement& element = append_element(parent, document, "layer");
  append_attribute(element, document, "type", tag());
  append_attribute(element, document, "id", id());
  XmlDumper dumper(element, document);
  show(dumper);
}

LayerSize ParameterLayer::size() const {
  ParameterCounter counter;
  show(counter);
  return counter.counted();
}

}  // namespace meridane
