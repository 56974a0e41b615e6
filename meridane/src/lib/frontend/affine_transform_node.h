#pragma once

#include <optional>

#include "meridane/frontend/flow_node.h"
#include "meridane/io/matrix.h"

namespace meridane {

/// y = scale o (matrix (x + ibias)) + obias, where o is the product element by element. What isn't set does nothing.
/// ibias has a value per column of the matrix, scale and obias one per row.
class AffineTransformNode : public FlowNode {
 public:
  using FlowNode::FlowNode;
  std::string info() const override;
  void load_settings(const XmlElement& element) override;
  void dump(XmlElement& element, XmlDocument& document) const override;

 protected:
  void feed(const Vector& x, std::size_t sender) override;

 private:
  std::optional<RowMatrix> matrix_, ibias_, obias_,
      scale_;                               // as the document has them, the last three in a row or a column
  std::optional<Eigen::Index> input_size_;  // any if nothing is set
};

}  // namespace meridane
