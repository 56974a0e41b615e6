#include "meridane/frontend/flow_node.h"

#include "meridane/error.h"

namespace meridane {

FlowNode::FlowNode(std::string name, std::string type, std::shared_ptr<FlowBudget> budget)
    : name_(std::move(name)),
      type_(std::move(type)),
      budget_(std::move(budget)),
      output_(kOutputPort, PortType::vector, budget_) {}

std::size_t FlowNode::add_sender() {
  if (senders_ > 0) raise("Node %s takes from one node only", name_.c_str());
  return senders_++;
}

void FlowNode::receive(std::size_t /*sender*/, const PackInfo& pack) {
  if (pack.kind == PackInfo::Kind::start) {
    if (open_senders_++ > 0) return;
    clear();
    output_.start();
  } else if (--open_senders_ == 0) {
    flush();
    output_.end();
  }
}

void FlowNode::receive(std::size_t sender, const FlowData& data) {
  if (const auto* word = std::get_if<std::string>(&data)) {
    feed_word(*word);
  } else if (const auto* frames = std::get_if<Matrix>(&data)) {
    for (Eigen::Index t = 0; t < frames->cols(); ++t) feed(frames->col(t), sender);
  } else {
    feed(std::get<Vector>(data), sender);
  }
}

void FlowNode::send(FlowData&& data) { output_.put(std::move(data)); }

void FlowNode::reset() {
  open_senders_ = 0;
  clear();
  output_.clear();
}

}  // namespace meridane
