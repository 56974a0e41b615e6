#pragma once

#include <vector>

#include "meridane/frontend/flow_node.h"

namespace meridane {

/// Joins the inputs frame by frame: y is a vector of each sender one under the other, in the order of the links. A
/// sender's vectors have one size for a session, and all senders send as many.
class MergeNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;
  std::size_t add_sender() override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;
  void flush() override;
  void clear() override;

 private:
  struct Buffer {
    FrameQueue waiting;
    Eigen::Index size = -1;  // of the vectors, once one has come
  };

  int num_ = 1;
  std::vector<Buffer> buffers_;  // of each sender
  std::size_t ready_ = 0;        // buffers with a vector
};

}  // namespace meridane
