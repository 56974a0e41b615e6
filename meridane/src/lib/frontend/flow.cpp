#include "meridane/frontend/flow.h"

#include <algorithm>
#include <cctype>
#include <rapidxml/rapidxml.hpp>

#include "lib/frontend/settings.h"
#include "meridane/error.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

constexpr std::string_view kOutputPrefix = "flowout_";

/// The factory of a type entry, which is a name of letters, digits and underscores.
const FlowNodeFactory& factory_of(const std::string& type) {
  const bool is_name = !type.empty() && std::all_of(type.begin(), type.end(),
                                                    [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
  if (!is_name) raise<InvalidFormat>("invalid format (expected \"%s\")", "node type");
  ensure_node_table();
  return NodeBuilder::get(type);
}

}  // namespace

Flow::Flow(std::istream& document) {
  const XmlFile file(document);
  const XmlElement* const root = file.root();
  if (root == nullptr) raise("Failed to construct Flow object");
  load(*root);
}

Flow::Flow(const XmlElement* element) {
  if (element == nullptr) raise("Parent xml node is not found");
  load(*element);
}

void Flow::load(const XmlElement& element) {
  if (element_name(element) != "flow") raise("Failed to construct Flow object");
  expect_children(element, {"meta", "node", "link"});
  const ScriptDocument expressions;
  for (const XmlElement* meta = find_child(element, "meta"); meta != nullptr; meta = next_of_name(*meta)) {
    std::string name = fetch_attribute(*meta, "name");
    meta_.emplace_back(std::move(name), fetch_attribute(*meta, "value"));
  }
  for (const XmlElement* node = find_child(element, "node"); node != nullptr; node = next_of_name(*node)) {
    add_node(*node);
  }
  for (const XmlElement* link = find_child(element, "link"); link != nullptr; link = next_of_name(*link)) {
    add_link({.from_node = fetch_attribute(*link, "from_node"),
              .from_port = fetch_attribute(*link, "from_port"),
              .to_node = fetch_attribute(*link, "to_node"),
              .to_port = fetch_attribute(*link, "to_port")});
  }
  order_nodes();
}

void Flow::add_node(const XmlElement& element) {
  const std::string type = fetch_attribute(element, "type");
  const std::string id = fetch_attribute(element, "id");
  if (type == "Flow") raise("Flow object cannot be a handler host");
  if (id.empty()) raise("attribute \"id\" is empty");
  const bool is_reserved = id == kInputPort || id == kOutputPort;
  if (is_reserved || by_name_.contains(id)) raise("Id [%s] is duplicated", id.c_str());
  nodes_.push_back(factory_of(type)(id, budget_, element));
  by_name_.emplace(id, nodes_.back().get());
}

OutputBuffer& Flow::sender(const Link& link) {
  OutputBuffer* buffer = input_.get();
  if (link.from_node != kInputPort) {
    const auto found = by_name_.find(link.from_node);
    if (found == by_name_.end()) raise("Sender node is not found: %s", link.from_node.c_str());
    buffer = &found->second->output();
  }
  if (link.from_port != buffer->name()) {
    raise<InvalidOutportError>("output buffer %s is not found", link.from_port.c_str());
  }
  return *buffer;
}

void Flow::add_link(Link link) {
  connect(sender(link), link);
  links_.push_back(std::move(link));
}

void Flow::connect(OutputBuffer& from, const Link& link) {
  const bool is_output = link.to_node == kOutputPort;
  const auto found = by_name_.find(link.to_node);
  if (!is_output && found == by_name_.end()) raise("Destination node is not found: %s", link.to_node.c_str());
  const PortType type = is_output ? PortType::vector : found->second->input_type();
  if (&from == input_.get() && !from.has_handlers()) from.set_type(type);
  expect_same_type(type, from.type());

  if (is_output) return open_output(from, link.to_port);
  if (link.to_port != kInputPort) raise("input port %s is not found", link.to_port.c_str());
  FlowNode* const to = found->second;
  const std::size_t sender = to->add_sender();
  from.add_handlers([to, sender](const PackInfo& pack) { to->receive(sender, pack); },
                    [to, sender](const FlowData& data) { to->receive(sender, data); });
}

void Flow::open_output(OutputBuffer& from, const std::string& name) {
  if (name != kOutputPort && !name.starts_with(kOutputPrefix)) {
    raise<InvalidOutportError>("output buffer %s is not found", name.c_str());
  }
  auto& buffer = outputs_[name];
  if (buffer != nullptr) raise("Output buffer %s takes from one node only", name.c_str());
  buffer = std::make_unique<OutputBuffer>(name, from.type(), nullptr);
  OutputBuffer* const to = buffer.get();
  from.add_handlers([to](const PackInfo& pack) { pack.kind == PackInfo::Kind::start ? to->start() : to->end(); },
                    [to](const FlowData& data) { to->put(FlowData(data)); });
}

void Flow::order_nodes() {
  std::map<std::string, std::vector<FlowNode*>> receivers;
  std::map<const FlowNode*, std::size_t> missing;  // senders that aren't in order yet
  for (const Link& link : links_) {
    if (link.from_node == kInputPort || link.to_node == kOutputPort) continue;
    FlowNode* const to = by_name_.at(link.to_node);
    receivers[link.from_node].push_back(to);
    ++missing[to];
  }
  for (const auto& node : nodes_) {
    if (!missing.contains(node.get())) order_.push_back(node.get());
  }
  for (std::size_t i = 0; i < order_.size(); ++i) {
    for (FlowNode* to : receivers[order_[i]->name()]) {
      if (--missing[to] == 0) order_.push_back(to);
    }
  }
  if (order_.size() != nodes_.size()) raise("Loop exists in the graph");
}

void Flow::dump(std::ostream& document) const {
  XmlFile file;
  dump(file.document(), file.document());
  file.write(document);
}

void Flow::dump(XmlElement& parent, XmlDocument& document) const {
  XmlElement& flow = append_element(parent, document, "flow");
  for (const auto& [name, value] : meta_) {
    XmlElement& element = append_element(flow, document, "meta");
    append_attribute(element, document, "name", name);
    append_attribute(element, document, "value", value);
  }
  for (const auto& node : nodes_) {
    XmlElement& element = append_element(flow, document, "node");
    append_attribute(element, document, "type", node->type());
    append_attribute(element, document, "id", node->name());
    node->dump(element, document);
  }
  for (const Link& link : links_) {
    XmlElement& element = append_element(flow, document, "link");
    append_attribute(element, document, "from_node", link.from_node);
    append_attribute(element, document, "from_port", link.from_port);
    append_attribute(element, document, "to_node", link.to_node);
    append_attribute(element, document, "to_port", link.to_port);
  }
}

std::string Flow::info() const {
  std::string text;
  for (const FlowNode* node : order_) {
    text += node->name() + ": " + node->type() + ", " + node->info() + "\n";
  }
  return text;
}

void Flow::start() {
  if (in_session()) raise("is in session already");
  run([this] { input_->start(); });
}

void Flow::feed(const FlowData& data) {
  if (!in_session()) raise("is not in session");
  expect_same_type(input_type(), port_type(data));
  const auto* frames = std::get_if<Matrix>(&data);
  if (frames == nullptr) return run([&] { input_->put(FlowData(data)); });
  for (Eigen::Index t = 0; t < frames->cols(); ++t) {
    run([&] { input_->put(Vector(frames->col(t))); });
  }
}

void Flow::end() {
  if (!in_session()) raise("is not in session");
  run([this] { input_->end(); });
}

void Flow::reset() {
  input_->clear();
  for (const auto& node : nodes_) node->reset();
  for (const auto& [name, buffer] : outputs_) buffer->clear();
}

template <class Step>
void Flow::run(const Step& step) {
  try {
    step();
    input_->deliver();
    for (FlowNode* node : order_) node->output().deliver();
    for (const auto& [name, buffer] : outputs_) {
      if (buffer->has_handlers()) buffer->deliver();
    }
  } catch (...) {
    reset();
    throw;
  }
}

OutputBuffer& Flow::output(const std::string& name) {
  const auto found = outputs_.find(name);
  if (found == outputs_.end()) raise<InvalidOutportError>("output buffer %s is not found", name.c_str());
  return *found->second;
}

void Flow::keep_only(const std::string& name) {
  for (const auto& [other, buffer] : outputs_) {
    if (other != name) buffer->add_handlers([](const PackInfo&) {}, [](const FlowData&) {});
  }
}

}  // namespace meridane
