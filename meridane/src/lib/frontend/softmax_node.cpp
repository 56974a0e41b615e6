#include "lib/frontend/softmax_node.h"

#include "lib/frontend/settings.h"

namespace meridane {

void SoftmaxNode::load_settings(const XmlElement& element) { expect_settings(element, {}); }

void SoftmaxNode::feed(const Vector& x, std::size_t /*sender*/) {
  if (x.size() == 0) return send(x);
  const Vector e = (x.array() - x.maxCoeff()).exp();
  send(Vector(e / e.sum()));
}

}  // namespace meridane
