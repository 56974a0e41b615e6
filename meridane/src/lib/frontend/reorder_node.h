#pragma once

#include "meridane/frontend/flow_node.h"
#include "meridane/io/matrix.h"

namespace meridane {

/// y(i) = x(mask(i)), indices from 0.
class ReorderNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;

 private:
  RowMatrix mask_;  // a row or a column of whole numbers
};

}  // namespace meridane
