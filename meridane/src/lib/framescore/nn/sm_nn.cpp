#include "meridane/framescore/sm_nn.h"

#include "meridane/framescore/nnlayer/builders.h"

namespace meridane {
namespace {

std::string part(const char* name, std::size_t i) { return std::string(name) + '[' + std::to_string(i) + ']'; }

[[noreturn]] void raise_missing(const std::string& name) {
  raise("SMNNParameter::%s data does not exist in shared memory.", name.c_str());
}

}  // namespace

std::shared_ptr<NNLayer> SMNNParameter::build_layer(const std::string& type, const std::string& id,
                                                    const XmlElement* element, std::istream& stream) const {
  ensure_layer_tables();
  const SMManager own = manager_.under(part("layer", layers().size()));
  own.construct_text("id", id);
  own.construct_text("type", type);
  return SMNNLayerBuilder::build(type, id, own, element, stream);
}

void SMNNParameter::load_binary_stream(std::istream& stream) {
  SMManager::Construction construction(manager_);
  NNParameter::load_binary_stream(stream);
  manager_.construct<std::uint64_t>("ninput", ninput());
  manager_.construct<std::uint64_t>("noutput", noutput());
  manager_.construct<std::uint64_t>("nlayers", layers().size());
  manager_.construct<std::uint64_t>("nlinks", links().size());
  for (std::size_t i = 0; i < links().size(); ++i) {
    const SMManager own = manager_.under(part("link", i));
    own.construct_text("from", links()[i].first);
    own.construct_text("to", links()[i].second);
  }
  construction.keep();
}

void SMNNParameter::load_xml_stream(std::istream&) { raise("NOT IMPLEMENTED"); }

std::uint64_t SMNNParameter::find_size(const char* name) const {
  const auto* const found = manager_.find<std::uint64_t>(name);
  if (found == nullptr) raise_missing(name);
  return *found;
}

std::string SMNNParameter::find_text(const std::string& part, const char* name) const {
  const auto* const found = manager_.under(part).find_text(name);
  if (found == nullptr) raise_missing(part + "::" + name);
  return {found->data(), found->size()};
}

void SMNNParameter::load_shared_memory() {
  ensure_layer_tables();
  const std::uint64_t ninput = find_size("ninput");
  set_sizes(ninput, find_size("noutput"));
  const std::uint64_t layers = find_size("nlayers");
  const std::uint64_t links = find_size("nlinks");
  for (std::uint64_t i = 0; i < layers; ++i) {
    const std::string own = part("layer", i);
    const std::string id = find_text(own, "id");
    add_layer(SMNNLayerFinder::build(find_text(own, "type"), id, manager_.under(own)));
  }
  for (std::uint64_t i = 0; i < links; ++i) {
    std::string from = find_text(part("link", i), "from");
    add_link(std::move(from), find_text(part("link", i), "to"));
  }
  fix();
}

}  // namespace meridane
