#pragma once

#include "meridane/framescore/multigmm.h"
#include "meridane/frontend/flow_node.h"

namespace meridane {

/// y = the number of the mixture in which x is densest, from 0; the first of equals. One value.
class GMMQuantizeNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;

 private:
  MultiGMMParameter parameter_;
};

}  // namespace meridane
