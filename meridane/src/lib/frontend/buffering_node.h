#pragma once

#include "meridane/frontend/flow_node.h"

namespace meridane {

/// Holds `frame` vectors, then sends them at once, as a matrix; what is left at the end of the session, too.
class BufferingNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;
  void flush() override;
  void clear() override { held_.clear(); }

 private:
  int frame_ = 1;
  FrameQueue held_{budget()};
};

}  // namespace meridane
