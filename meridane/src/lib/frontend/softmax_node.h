#pragma once

#include "meridane/frontend/flow_node.h"

namespace meridane {

/// With m = max x: y(i) = exp(x(i) - m) / sum over k of exp(x(k) - m).
class SoftmaxNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override { return "softmax"; }
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& /*element*/, XmlDocument& /*document*/) const override {}

 protected:
  void feed(const Vector& x, std::size_t sender) override;
};

}  // namespace meridane
