// The document form of a network.

#include <filesystem>
#include <fstream>
#include <rapidxml/rapidxml.hpp>
#include <sstream>

#include "lib/framescore/parameter_file.h"
#include "meridane/error.h"
#include "meridane/framescore/nn.h"
#include "meridane/io/number_text.h"

namespace meridane {
namespace {

/// The file that a layer's element refers to. A folder can be opened too, but not read.
std::ifstream open_layer_file(const std::string& path, std::ios_base::openmode how) {
  std::ifstream file(path, how);
  if (!file || std::filesystem::is_directory(path)) raise("couldn't open \"%s\"", path.c_str());
  return file;
}

// Order and texts of the checks are part of the format.

const std::string& checked_start(const std::string& from) {
  if (from.empty()) raise("attribute \"from_id\" is empty");
  if (from == "_output") raise("couldn't set \"_output\" to attribute \"from_id\"");
  return from;
}

const std::string& checked_end(const std::string& to) {
  if (to.empty()) raise("attribute \"to_id\" is empty");
  if (to == "_input") raise("couldn't set \"_input\" to attribute \"to_id\"");
  return to;
}

}  // namespace

std::shared_ptr<NNLayer> NNParameter::build_layer(const XmlElement& element) const {
  const std::string type = fetch_attribute(element, "type");
  const std::string id = fetch_attribute(element, "id");
  const std::string ref = find_attribute(element, "ref").value_or("");
  const std::string format = find_attribute(element, "format").value_or("text/xml");
  if (ref.empty()) {
    std::istringstream none;
    return build_layer(type, id, &element, none);
  }
  if (format == "text/xml") {
    std::ifstream file = open_layer_file(ref, std::ios_base::in);
    const XmlFile document(file);
    if (document.root() == nullptr) raise("Failed to parse xml");
    return build_layer(type, id, document.root(), file);
  }
  if (format == "application/meridane-bin") {
    std::ifstream file = open_layer_file(ref, std::ios_base::binary);
    file.exceptions(std::ios_base::badbit);
    return build_layer(type, id, nullptr, file);
  }
  raise("\"%s\" format does not support", format.c_str());
}

void XmlStoreTraits<NNParameter>::load(NNParameter& parameter, const XmlFile& file) {
  const XmlElement& root = expect_root(file, "NN", kNNMagic);
  const std::uint64_t ninput = size_of(fetch_attribute(root, "ninput"));
  parameter.set_sizes(ninput, size_of(fetch_attribute(root, "noutput")));

  const XmlElement& layers = expect_child(root, "layers");
  for (const XmlElement* layer = &expect_child(layers, "layer"); layer != nullptr; layer = next_of_name(*layer)) {
    parameter.add_layer(parameter.build_layer(*layer));
  }
  const XmlElement& links = expect_child(root, "links");
  for (const XmlElement* link = &expect_child(links, "link"); link != nullptr; link = next_of_name(*link)) {
    std::string from = checked_start(fetch_attribute(*link, "from_id"));
    parameter.add_link(std::move(from), checked_end(fetch_attribute(*link, "to_id")));
  }
  parameter.fix();
}

void XmlStoreTraits<NNParameter>::dump(const NNParameter& parameter, XmlFile& file) {
  if (parameter.layers().empty()) raise("A document can't hold a network without layers");
  XmlDocument& document = file.document();
  XmlElement& root = append_root(file, "NN", kNNMagic);
  append_attribute(root, document, "ninput", std::to_string(parameter.ninput()));
  append_attribute(root, document, "noutput", std::to_string(parameter.noutput()));
  XmlElement& layers = append_element(root, document, "layers");
  for (const auto& layer : parameter.layers()) layer->dump_xml(layers, document);
  XmlElement& links = append_element(root, document, "links");
  for (const auto& [from, to] : parameter.links()) {
    XmlElement& link = append_element(links, document, "link");
    append_attribute(link, document, "from_id", checked_start(from));
    append_attribute(link, document, "to_id", checked_end(to));
  }
}

}  // namespace meridane
